#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kiln {

class Context;
class PureValueRef;

// A value of the design kit: immutable, interned and counted by its references. Equal numbers,
// texts and tuples of one context are the same object, so values compare by address.
class PureValue {
 public:
  virtual ~PureValue() = default;
  PureValue(const PureValue&) = delete;
  // The value as a person reads it: the attribute's name, the number, the text, "(a, b)".
  virtual std::string text() const = 0;

 protected:
  PureValue() = default;

 private:
  friend class PureValueRef;
  friend class Context;
  int mRefCount = 0;
  Context* owner = nullptr;  // null for an attribute, which lives for the whole run
};

// One counted reference to a value; a default one refers to none.
class PureValueRef {
 public:
  PureValueRef() = default;
  PureValueRef(const PureValue& value) : held(&value) { retain(); }
  PureValueRef(const PureValueRef& other) : held(other.held) { retain(); }
  PureValueRef(PureValueRef&& other) noexcept : held(std::exchange(other.held, nullptr)) {}
  PureValueRef& operator=(PureValueRef other) noexcept {
    std::swap(held, other.held);
    return *this;
  }
  ~PureValueRef() { release(); }

  const PureValue* get_ptr() const { return held; }
  const PureValue* operator->() const { return held; }
  explicit operator bool() const { return held != nullptr; }
  bool operator==(const PureValueRef&) const = default;

 private:
  void retain();
  void release();

  const PureValue* held = nullptr;
};

// An attribute of the kit: a constant that serves as a parameter's key or value.
class StaticString : public PureValue {
 public:
  explicit StaticString(const char* name) : name(name) {}
  std::string text() const override { return name; }

 private:
  const char* name;
};

class NumberValue : public PureValue {
 public:
  static PureValueRef get(double number, Context* context);
  static PureValueRef get(int number, Context* context) {
    return get(static_cast<double>(number), context);
  }
  double value() const { return number; }
  std::string text() const override;

 private:
  explicit NumberValue(double number) : number(number) {}
  double number;
};

class StringValue : public PureValue {
 public:
  static PureValueRef get(const std::string& text, Context* context);
  std::string text() const override { return characters; }

 private:
  explicit StringValue(const std::string& text) : characters(text) {}
  std::string characters;
};

class PureTupleValue : public PureValue {
 public:
  static PureValueRef get(const std::vector<PureValueRef>& elements, Context* context);
  const std::vector<PureValueRef>& elements() const { return values; }
  std::string text() const override;

 private:
  explicit PureTupleValue(const std::vector<PureValueRef>& elements) : values(elements) {}
  std::vector<PureValueRef> values;
};

// Where values are interned. Must outlive every reference to a value of its own.
class Context {
 public:
  Context() = default;
  Context(const Context&) = delete;
  ~Context();
  // Values that are referred to.
  std::size_t size() const { return numbers.size() + texts.size() + tuples.size(); }

 private:
  friend class PureValueRef;
  friend class NumberValue;
  friend class StringValue;
  friend class PureTupleValue;

  template <typename Value, typename Key>
  PureValueRef intern(std::map<Key, std::unique_ptr<PureValue>>& table, const Key& key,
                      Value* (*make)(const Key&));
  void forget(const PureValue* value);

  std::map<double, std::unique_ptr<PureValue>> numbers;
  std::map<std::string, std::unique_ptr<PureValue>> texts;
  std::map<std::vector<const PureValue*>, std::unique_ptr<PureValue>> tuples;
};

// Sets the context of the run up; destroying it tears the context down. One at a time.
class ContextMgr {
 public:
  ContextMgr();
  ~ContextMgr();
  ContextMgr(const ContextMgr&) = delete;
  // The current context, or null outside the life of a manager.
  static Context* get();

 private:
  Context context;
};

}  // namespace kiln
