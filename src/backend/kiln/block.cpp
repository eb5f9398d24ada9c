#include "backend/kiln/block.h"

namespace kiln {

Wire* Wire::create(Block& block, const PureValueRef& key) {
  block.leaving.push_back(std::unique_ptr<Wire>(new Wire(block, key)));
  return block.leaving.back().get();
}

Block& Block::create(Model& model, const std::string& name) {
  model.owned.push_back(std::unique_ptr<Block>(new Block(model, name)));
  return *model.owned.back();
}

Model::Model(Design& design, const std::string& name) : Node(name), design(design) {}
Model::~Model() = default;

}  // namespace kiln
