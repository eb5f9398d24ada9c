#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "numbers/pipeline.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// The vector files of a unit called `name`: ./<name>/<name>_xIn.stm with the inputs of each clock
// cycle and ./<name>/<name>_xOut.stm with the outputs of the same cycle. Both have the same number
// of rows; a result stands `latency` rows below its stimulus.
//
// With split outputs each output port has a response file of its own, <name>_xOut0.stm and so on.
//
// A row is a sequence of columns, each a blank, the number and a blank:
//   stimulus   valid (1 bit), channel (8), one column for each input port, with -enable the enable
//   response   valid (1), channel (8), then for each output port its legal values side by side,
//              alternativesOf() columns each (accuracy/accepted_values.h)
// Valid and channel are missing with `noChanValid`. Ports stand in the order of their list, bits
// with the top one first; a do-not-care is a string of dashes. The response file begins with
// `latency` filling rows (valid 0, channel 0, zeros; here a port without a column has one
// column), the stimulus file ends with as many closing rows (valid 0, channel 1, zeros).

// Makes the folder and opens both files for writing; tells their names on standard output. A file
// that does not open ends the run with one line.
void openStimultiFiles(FILE*& in, FILE*& out, const std::string& name);
// The form for split outputs, with a response file for each entry of outLatency; makes no folder
// and prints nothing.
void openStimultiFiles(FILE*& in, std::vector<FILE*>& outs, const std::string& name,
                       const TestingOptions& t);
// Opens both for reading.
void openStimultiFilesForEvaluateAccuracy(FILE*& in, FILE*& out, const std::string& inPath,
                                          const std::string& outPath);
// The paths of the two files, and that of output port `port` with split outputs.
std::string stimulusPath(const std::string& name);
std::string responsePath(const std::string& name);
std::string responsePath(const std::string& name, std::size_t port);

// A column of valid, channel or enable: bits, hexadecimal or decimal. In bits a value too wide for
// its column shows all ones.
void printNumber(FILE* f, unsigned long value, unsigned width, OutputNumberType type);
// A data column: bits (two's complement, dashes for a do-not-care), base 8 for HEX, base 10.
void printNumber(FILE* f, const util::MPZ& value, unsigned width, OutputNumberType type,
                 NumType numType);

// A whole row of one value for each port; more values than ports start over with the first port.
// Values are packed as they are; a raw one on a floating port is its own pattern.
void printToStimuliFile(FILE* f, const std::vector<NumValue>& values, const PortSpecList& ports,
                        int valid, int channel, const TestingOptions& t, long enable);
void printToFile(FILE* f, const PortSpecList& ports, const std::vector<NumValue>& values, int valid,
                 int channel, int enable, const TestingOptions& t);
// A whole response row of two columns for each port, with valid 1.
void printToStimuliFile(FILE* f, const std::vector<NumValue>& low,
                        const std::vector<NumValue>& high,
                        const std::vector<const kiln::FloatingPoint*>& formats, int channel,
                        const TestingOptions& t);
// A whole response row with a list of alternatives for each port, each brought into the port's
// range first.
void printToStimuliFileVV(FILE* f, const std::vector<std::vector<NumValue>>& perPort,
                          const PortSpecList& ports, int channel, int valid,
                          const TestingOptions& t);

// One row of each output port into its own file, with the valid and channel of the stage that has
// left the port's delay.
void printToStimuliFileVVOS(const std::vector<FILE*>& files,
                            const std::vector<std::vector<NumValue>>& perPort,
                            const PortSpecList& ports,
                            const std::vector<const PipelineStage*>& stages,
                            const TestingOptions& t);

// The filling rows of a response file.
void initialOutputPipelineFill(FILE* f, const PortSpecList& ports, int latency,
                               const TestingOptions& t);
// The closing rows of a stimulus file.
void drainRows(FILE* f, const PortSpecList& ports, int latency, const TestingOptions& t);
