#pragma once

#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "backend/kiln/values.h"

namespace kiln {

class Node;

// A handle on one parameter of a node. Setting a parameter that is not there makes it.
class NodeParamRef {
 public:
  NodeParamRef(Node& node, PureValueRef key) : node(node), key(std::move(key)) {}
  void operator=(const PureValueRef& value);
  void operator=(Node& connected);
  // The value that the parameter holds; null when it holds none or a node.
  const PureValue* get_ptr() const;
  // The node that the parameter is connected to, or null.
  Node* node_ptr() const;

 private:
  Node& node;
  PureValueRef key;
};

// A design, a model or a part of one: a name and parameters in the order in which they were first
// set.
class Node {
 public:
  using Held = std::variant<PureValueRef, Node*>;
  struct Parameter {
    PureValueRef key;
    Held held;
  };

  explicit Node(std::string name) : nodeName(std::move(name)) {}
  virtual ~Node() = default;
  Node(const Node&) = delete;

  NodeParamRef operator[](const PureValueRef& key) { return {*this, key}; }
  const std::string& name() const { return nodeName; }
  const std::vector<Parameter>& parameters() const { return rows; }

 private:
  friend class NodeParamRef;
  std::string nodeName;
  std::vector<Parameter> rows;
};

class Block;
class Model;

// The root of a design's graph; owns its models.
class Design : public Node {
 public:
  explicit Design(Context* context);
  ~Design() override;
  Context* context() const { return values; }
  const std::vector<std::unique_ptr<Model>>& models() const { return owned; }

 private:
  friend class Model;
  Context* values;
  std::vector<std::unique_ptr<Model>> owned;
};

// A graph of blocks, which it owns.
class Model : public Node {
 public:
  static Model& create(Design& design, const std::string& name);
  ~Model() override;
  Design& getDesign() { return design; }
  const std::vector<std::unique_ptr<Block>>& blocks() const { return owned; }

 private:
  friend class Block;
  Model(Design& design, const std::string& name);
  Design& design;
  std::vector<std::unique_ptr<Block>> owned;
};

}  // namespace kiln
