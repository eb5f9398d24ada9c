#include "backend/kiln/node.h"

#include <algorithm>

namespace kiln {

namespace {

template <typename Rows>
auto rowOf(Rows& rows, const PureValueRef& key) {
  return std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.key == key; });
}

}  // namespace

void NodeParamRef::operator=(const PureValueRef& value) {
  const auto row = rowOf(node.rows, key);
  if (row == node.rows.end()) {
    node.rows.push_back({key, value});
  } else {
    row->held = value;
  }
}

void NodeParamRef::operator=(Node& connected) {
  const auto row = rowOf(node.rows, key);
  if (row == node.rows.end()) {
    node.rows.push_back({key, &connected});
  } else {
    row->held = &connected;
  }
}

const PureValue* NodeParamRef::get_ptr() const {
  const auto row = rowOf(node.rows, key);
  if (row == node.rows.end()) return nullptr;
  const PureValueRef* value = std::get_if<PureValueRef>(&row->held);
  return value ? value->get_ptr() : nullptr;
}

Node* NodeParamRef::node_ptr() const {
  const auto row = rowOf(node.rows, key);
  if (row == node.rows.end()) return nullptr;
  Node* const* connected = std::get_if<Node*>(&row->held);
  return connected ? *connected : nullptr;
}

Design::Design(Context* context) : Node("design"), values(context) {}
Design::~Design() = default;

Model& Model::create(Design& design, const std::string& name) {
  design.owned.push_back(std::unique_ptr<Model>(new Model(design, name)));
  return *design.owned.back();
}

}  // namespace kiln
