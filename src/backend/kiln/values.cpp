#include "backend/kiln/values.h"

#include <fmt/format.h>

#include "util/failure.h"

namespace kiln {

namespace {

Context* current = nullptr;

}  // namespace

void PureValueRef::retain() {
  if (held && held->owner) ++const_cast<PureValue*>(held)->mRefCount;
}

void PureValueRef::release() {
  if (!held || !held->owner) return;
  const int mRefCount = held->mRefCount;
  LOAM_ASSERT(mRefCount > 0, "a value of the kit was released once too often");
  if (--const_cast<PureValue*>(held)->mRefCount == 0) held->owner->forget(held);
}

// Equal keys give the same value; a new one belongs to this context from here on.
template <typename Value, typename Key>
PureValueRef Context::intern(std::map<Key, std::unique_ptr<PureValue>>& table, const Key& key,
                             Value* (*make)(const Key&)) {
  auto found = table.find(key);
  if (found == table.end()) {
    std::unique_ptr<PureValue> value(make(key));
    value->owner = this;
    found = table.emplace(key, std::move(value)).first;
  }
  return PureValueRef(*found->second);
}

PureValueRef NumberValue::get(double number, Context* context) {
  return context->intern<NumberValue, double>(
      context->numbers, number, [](const double& key) { return new NumberValue(key); });
}

std::string NumberValue::text() const { return fmt::format("{}", number); }

PureValueRef StringValue::get(const std::string& text, Context* context) {
  return context->intern<StringValue, std::string>(
      context->texts, text, [](const std::string& key) { return new StringValue(key); });
}

PureValueRef PureTupleValue::get(const std::vector<PureValueRef>& elements, Context* context) {
  std::vector<const PureValue*> key;
  for (const PureValueRef& element : elements) key.push_back(element.get_ptr());
  return context->intern<PureTupleValue, std::vector<const PureValue*>>(
      context->tuples, key, [](const std::vector<const PureValue*>& addresses) {
        std::vector<PureValueRef> values;
        for (const PureValue* address : addresses)
          values.push_back(address ? PureValueRef(*address) : PureValueRef());
        return new PureTupleValue(values);
      });
}

std::string PureTupleValue::text() const {
  std::string joined = "(";
  for (const PureValueRef& element : values)
    joined += (joined.size() > 1 ? ", " : "") + (element ? element->text() : std::string("null"));
  return joined + ")";
}

Context::~Context() { tuples.clear(); }

// Takes the value out of its table before it dies, since a tuple releases its elements then.
void Context::forget(const PureValue* value) {
  if (const auto* number = dynamic_cast<const NumberValue*>(value)) {
    numbers.erase(number->value());
  } else if (dynamic_cast<const StringValue*>(value)) {
    texts.erase(value->text());
  } else if (const auto* tuple = dynamic_cast<const PureTupleValue*>(value)) {
    std::vector<const PureValue*> key;
    for (const PureValueRef& element : tuple->elements()) key.push_back(element.get_ptr());
    const auto dying = tuples.extract(key);
  }
}

ContextMgr::ContextMgr() { current = &context; }
ContextMgr::~ContextMgr() { current = nullptr; }
Context* ContextMgr::get() { return current; }

}  // namespace kiln
