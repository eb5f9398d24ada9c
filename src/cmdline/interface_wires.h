#pragma once

#include <stdexcept>
#include <utility>
#include <vector>

namespace kiln {
class Wire;
}

namespace cmdline {

// The wires between two stages of a system's graph. A bundle belongs to its holder, the wires in it
// to the model.
class InterfaceWires {
 public:
  explicit InterfaceWires(std::vector<kiln::Wire*> data) : data(std::move(data)) {}
  virtual ~InterfaceWires() = default;
  InterfaceWires(const InterfaceWires&) = delete;

  std::vector<kiln::Wire*> dataWires() const { return data; }

 private:
  std::vector<kiln::Wire*> data;
};

class ChanValidInterfaceWires : public virtual InterfaceWires {
 public:
  ChanValidInterfaceWires(std::vector<kiln::Wire*> data, kiln::Wire* valid, kiln::Wire* channel)
      : InterfaceWires(std::move(data)), valid(valid), channel(channel) {}

  kiln::Wire* valid;
  kiln::Wire* channel;
};

class EnableInterfaceWires : public virtual InterfaceWires {
 public:
  EnableInterfaceWires(std::vector<kiln::Wire*> data, kiln::Wire* enable)
      : InterfaceWires(std::move(data)), enable(enable) {}

  kiln::Wire* enable;
};

class ChanValidEnableInterfaceWires : public ChanValidInterfaceWires, public EnableInterfaceWires {
 public:
  ChanValidEnableInterfaceWires(const std::vector<kiln::Wire*>& data, kiln::Wire* valid,
                                kiln::Wire* channel, kiln::Wire* enable)
      : InterfaceWires(data),
        ChanValidInterfaceWires({}, valid, channel),
        EnableInterfaceWires({}, enable) {}
};

// `source` as what it is known to be. Throws std::logic_error when it is null or something else.
template <typename Target, typename Source>
Target checked_dynamic_cast(Source* source) {
  Target target = dynamic_cast<Target>(source);
  if (!target) throw std::logic_error("checked_dynamic_cast: the object is not of this class");
  return target;
}

}  // namespace cmdline
