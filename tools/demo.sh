#!/bin/sh
# Generates a single-precision adder for 300 MHz with 1000 test vectors, has GHDL replay them, and
# shows the report of the generator and the verdict of the simulator.
#   demo.sh PROGRAM FOLDER
set -eu
program=$(realpath "$1")
folder=$2
line="-frequency 300 -testbench 1000 -randomTests -printMachineReadable FPAdd 8 23"
rm -rf "$folder"
mkdir -p "$folder"
cd "$folder"
echo "cmdGauge $line"
# shellcheck disable=SC2086
"$program" $line >generator.log
echo "wrote:"
ls -1 topModel | sed 's/^/  topModel\//'
echo "./topModel/simulate.sh"
./topModel/simulate.sh >simulation.log
sed -n '/^@@start/,/^@@end/p' generator.log
tail -n 1 simulation.log
