#include "cmdline/record_file.h"

#include <fstream>
#include <sstream>

#include "backend/kiln/xml.h"

namespace cmdline {

void writeRecordFile(const kiln::Design& design) {
  const kiln::XMLServices services;
  std::stringstream text;
  services.toXML(text, design);
  std::ofstream("somefile.xml") << text.str();
}

}  // namespace cmdline
