#pragma once

#include <string>

#include "numbers/ports.h"

namespace kiln {

class Model;
class Wire;

// A pointer and a word that says what it points to: 0, the class named here. There is no other.
struct GenericModel {
  Model* model = nullptr;
  int selector = 0;
};
struct GenericConnection {
  Wire* wire = nullptr;
  int selector = 0;
};

// A typed handle on a wire, as units are given them and give them back.
struct Signal {
  GenericModel model;
  GenericConnection connection;
  Type type;
  std::string portName, modelName;

  static const Signal empty;  // of no model and no wire
};

inline const Signal Signal::empty{{}, {}, FixedPoint(0, 0, false), "", ""};

}  // namespace kiln
