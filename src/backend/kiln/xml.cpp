#include "backend/kiln/xml.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <pugixml.hpp>

#include "backend/kiln/block.h"

namespace kiln {

namespace {

// The wires of a design, numbered in order, so that a connection can name its own.
using WireNumbers = std::map<const Node*, int>;

// Characters that XML cannot hold become question marks.
std::string legal(std::string text) {
  std::ranges::replace_if(
      text, [](unsigned char letter) { return letter < 0x20 || letter >= 0x7f; }, '?');
  return text;
}

void set(pugi::xml_node element, const char* name, const std::string& text) {
  element.append_attribute(name).set_value(legal(text).c_str());
}

const char* kindOf(const PureValue* value) {
  if (dynamic_cast<const StaticString*>(value)) return "attribute";
  if (dynamic_cast<const NumberValue*>(value)) return "number";
  if (dynamic_cast<const StringValue*>(value)) return "string";
  return dynamic_cast<const PureTupleValue*>(value) ? "tuple" : "null";
}

void setKey(pugi::xml_node element, const PureValueRef& key) {
  set(element, "key", key->text());
  set(element, "keyKind", kindOf(key.get_ptr()));
}

void setValue(pugi::xml_node element, const PureValue* value) {
  set(element, "kind", kindOf(value));
  if (const auto* tuple = dynamic_cast<const PureTupleValue*>(value)) {
    for (const PureValueRef& held : tuple->elements())
      setValue(element.append_child("element"), held.get_ptr());
  } else if (value) {
    set(element, "value", value->text());
  }
}

void addParameters(pugi::xml_node element, const Node& node, const WireNumbers& numbers) {
  for (const Node::Parameter& parameter : node.parameters()) {
    pugi::xml_node row = element.append_child("parameter");
    setKey(row, parameter.key);
    if (const auto* value = std::get_if<PureValueRef>(&parameter.held)) {
      setValue(row, value->get_ptr());
      continue;
    }
    const Node* connected = std::get<Node*>(parameter.held);
    const auto* wire = dynamic_cast<const Wire*>(connected);
    set(row, "kind", wire ? "wire" : "node");
    if (wire) {
      set(row, "value", fmt::format("{}", numbers.at(wire)));
      set(row, "from", wire->block().name());
      set(row, "output", wire->key()->text());
    } else {
      set(row, "value", connected->name());
    }
  }
}

pugi::xml_node addNode(pugi::xml_node parent, const char* kind, const Node& node,
                       const WireNumbers& numbers) {
  pugi::xml_node element = parent.append_child(kind);
  set(element, "name", node.name());
  addParameters(element, node, numbers);
  return element;
}

void addWires(pugi::xml_node element, const Block& block, const WireNumbers& numbers) {
  for (const auto& wire : block.wires()) {
    pugi::xml_node row = element.append_child("wire");
    set(row, "id", fmt::format("{}", numbers.at(wire.get())));
    setKey(row, wire->key());
    addParameters(row, *wire, numbers);
  }
}

}  // namespace

void XMLServices::toXML(std::ostream& out, const Design& design) const {
  WireNumbers numbers;
  for (const auto& model : design.models())
    for (const auto& block : model->blocks())
      for (const auto& wire : block->wires())
        numbers.emplace(wire.get(), static_cast<int>(numbers.size()));

  pugi::xml_document document;
  pugi::xml_node root = addNode(document, "design", design, numbers);
  for (const auto& model : design.models()) {
    pugi::xml_node element = addNode(root, "model", *model, numbers);
    for (const auto& block : model->blocks())
      addWires(addNode(element, "block", *block, numbers), *block, numbers);
  }
  document.save(out, "  ");
}

}  // namespace kiln
