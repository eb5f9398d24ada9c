#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "backend/kiln/node.h"

namespace kiln {

class Block;

// What leaves a block at one of its outputs. It enters another block as the node that a parameter
// of that block is connected to.
class Wire : public Node {
 public:
  // The key names the output: an attribute, a number or a text. The wire belongs to the block.
  static Wire* create(Block& block, const PureValueRef& key);
  Block& block() const { return source; }
  const PureValueRef& key() const { return output; }

 private:
  Wire(Block& block, const PureValueRef& key) : Node(key->text()), source(block), output(key) {}
  Block& source;
  PureValueRef output;
};

// A part of a model's graph. Its parameters hold what it stands for and which wires enter it.
class Block : public Node {
 public:
  // Belongs to the model.
  static Block& create(Model& model, const std::string& name);
  Model& model() const { return holder; }
  const std::vector<std::unique_ptr<Wire>>& wires() const { return leaving; }

 private:
  friend class Wire;
  Block(Model& model, const std::string& name) : Node(name), holder(model) {}
  Model& holder;
  std::vector<std::unique_ptr<Wire>> leaving;
};

}  // namespace kiln
