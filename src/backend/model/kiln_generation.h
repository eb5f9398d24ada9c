#pragma once

#include <memory>

#include "backend/kiln/node.h"
#include "backend/model/model.h"

namespace kiln {

// What was generated from a design. The models live as long as a handle to them does.
class CModelDatabaseHandle {
 public:
  struct Database;

  explicit CModelDatabaseHandle(std::shared_ptr<const Database> database)
      : database(std::move(database)) {}
  // The model made of `model`, or null.
  CModel* getCModel(const Node& model) const;

 private:
  std::shared_ptr<const Database> database;
};

}  // namespace kiln

// Makes the unit library known to the kit. Once, before a design is generated.
void requireMathematicalFunctions();

// Builds the one unit that each model of the design describes (kiln_graph.h), by the settings on
// the model and the design: what the settings mean stands with the attributes, and a setting that
// is missing has the default of CModelOptions. Writes the HDL and its record into the design's
// output folder where the model's output mode asks for it. The same unit and settings give the same
// circuit as the classic flow. The flag is for callers that pass one and means nothing.
//
// Ends the run with one line, before any file is touched, when the library lacks the unit or no
// circuit exists for the request.
kiln::CModelDatabaseHandle runKilnGeneration(kiln::Design& design, bool);
