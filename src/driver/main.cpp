#include "driver/run.h"

int main(int argc, char** argv) { return driver::run(argc, argv); }
