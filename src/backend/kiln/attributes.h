#pragma once

#include "backend/kiln/values.h"

namespace kiln {

// Attributes of the kit: keys and values of parameters.
inline const StaticString A_TRUE{"TRUE"};
inline const StaticString A_FALSE{"FALSE"};

// Of a design: where its files go, in which language, from which command line; who made it.
inline const StaticString A_GENERATE_LANGUAGE{"GENERATE_LANGUAGE"};
inline const StaticString A_GENERATE_LANGUAGE_VHDL{"VHDL"};
inline const StaticString A_GENERATE_OUTPUT_PATH{"GENERATE_OUTPUT_PATH"};
inline const StaticString A_GENERATE_COMMAND_LINE{"GENERATE_COMMAND_LINE"};
inline const StaticString A_GENERATE_SEED{"GENERATE_SEED"};
inline const StaticString A_DESIGN_GENERATOR{"DESIGN_GENERATOR"};
inline const StaticString A_DESIGN_GENERATOR_IS_KILNTEST{"DESIGN_GENERATOR_IS_KILNTEST"};
inline const StaticString A_DESIGN_GENERATOR_IS_TESSEL{"DESIGN_GENERATOR_IS_TESSEL"};
inline const StaticString A_DESIGN_GENERATOR_IS_OSPREY{"DESIGN_GENERATOR_IS_OSPREY"};

// Of a model: what is written.
inline const StaticString A_SYNTH_OUTPUT_MODE{"SYNTH_OUTPUT_MODE"};
inline const StaticString A_SYNTH_OUTPUT_HDL_ROOT{"SYNTH_OUTPUT_HDL_ROOT"};
// Of a model: clock, reset, registers.
inline const StaticString A_SYNTH_CLOCK_NAME{"SYNTH_CLOCK_NAME"};
inline const StaticString A_SYNTH_CLOCK_FREQ{"SYNTH_CLOCK_FREQ"};
inline const StaticString A_SYNTH_RESET_NAME{"SYNTH_RESET_NAME"};
inline const StaticString A_SYNTH_RESET_ACTIVE_MODE{"SYNTH_RESET_ACTIVE_MODE"};
inline const StaticString A_SYNTH_RESET_ACTIVE_HIGH{"SYNTH_RESET_ACTIVE_HIGH"};
inline const StaticString A_SYNTH_COMBINATORIAL{"SYNTH_COMBINATORIAL"};
// Of a model: the device.
inline const StaticString A_SYNTH_DEVICE_FAMILY{"SYNTH_DEVICE_FAMILY"};
inline const StaticString A_SYNTH_DEVICE_SPEED_GRADE{"SYNTH_DEVICE_SPEED_GRADE"};
inline const StaticString A_SYNTH_DEVICE_PART{"SYNTH_DEVICE_PART"};
inline const StaticString A_SYNTH_DEVICE_ENABLE_HARDFP{"SYNTH_DEVICE_ENABLE_HARDFP"};
// Of a model: the latency that every pair of an input and an output must have.
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_PAIR{"SYNTH_LATENCY_CONSTRAINT_PAIR"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_EVERY_IO{"SYNTH_LATENCY_CONSTRAINT_EVERY_IO"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_VALUE{"SYNTH_LATENCY_CONSTRAINT_VALUE"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_MODE{"SYNTH_LATENCY_CONSTRAINT_MODE"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_EQ{"SYNTH_LATENCY_CONSTRAINT_EQ"};
// Of a model: its bench. One bound in ulps for each output, and whether subnormal numbers count.
inline const StaticString A_SYNTH_ATB_STM_FILE_MODE{"SYNTH_ATB_STM_FILE_MODE"};
inline const StaticString A_SYNTH_ATB_STM_FILE_MODE_BINARY{"SYNTH_ATB_STM_FILE_MODE_BINARY"};
inline const StaticString A_SYNTH_ATB_UNIT_RIGUROUS_TESTING{"SYNTH_ATB_UNIT_RIGUROUS_TESTING"};
inline const StaticString A_SYNTH_ATB_UNIT_ULP_VALUES{"SYNTH_ATB_UNIT_ULP_VALUES"};
inline const StaticString A_SYNTH_ATB_SUBNORMALS{"SYNTH_ATB_SUBNORMALS"};
// Of a model: what its bench makes of a wrong answer.
inline const StaticString A_SYNTH_ATB_GPIO_MISMATCH{"SYNTH_ATB_GPIO_MISMATCH"};
inline const StaticString A_SYNTH_ATB_CHANNEL_MISMATCH{"SYNTH_ATB_CHANNEL_MISMATCH"};
inline const StaticString A_SYNTH_ATB_MODE_ERROR{"SYNTH_ATB_MODE_ERROR"};
inline const StaticString A_SYNTH_ATB_MODE_WARNING{"SYNTH_ATB_MODE_WARNING"};
// Of a unit: with A_FALSE, its data registers need no reset.
inline const StaticString A_CONTROLFLOW_TAG{"CONTROLFLOW_TAG"};

// Of a block: what it stands for.
inline const StaticString A_BLOCK_TYPE{"BLOCK_TYPE"};
inline const StaticString A_INPUT_BLOCK{"INPUT_BLOCK"};
inline const StaticString A_OUTPUT_BLOCK{"OUTPUT_BLOCK"};
inline const StaticString A_TYPE_PIN_BLOCK{"TYPE_PIN_BLOCK"};
inline const StaticString A_CHANNEL_IN_BLOCK{"CHANNEL_IN_BLOCK"};
inline const StaticString A_CHANNEL_OUT_BLOCK{"CHANNEL_OUT_BLOCK"};
inline const StaticString A_SIGNAL_IN_BLOCK{"SIGNAL_IN_BLOCK"};
inline const StaticString A_SIGNAL_OUT_BLOCK{"SIGNAL_OUT_BLOCK"};
inline const StaticString A_UNIT_BLOCK{"UNIT_BLOCK"};
// Of a type pin: the format of the wire that enters it at 0.
inline const StaticString A_TYPE_PIN_TYPE{"TYPE_PIN_TYPE"};
inline const StaticString A_NUMTYPE_UFIXED{"NUMTYPE_UFIXED"};
inline const StaticString A_NUMTYPE_FIXED{"NUMTYPE_FIXED"};
inline const StaticString A_NUMTYPE_SFLOAT_IEEE{"NUMTYPE_SFLOAT_IEEE"};
inline const StaticString A_NUMTYPE_SFLOAT_FPLIB{"NUMTYPE_SFLOAT_FPLIB"};
// Of a unit's block: the unit in the library, the numbers that choose its variant, the options it
// was built with, and the formats of its ports.
inline const StaticString A_UNIT_NAME{"UNIT_NAME"};
inline const StaticString A_UNIT_VARIANT{"UNIT_VARIANT"};
inline const StaticString A_UNIT_OPTIONS{"UNIT_OPTIONS"};
inline const StaticString A_UNIT_INPUT_TYPES{"UNIT_INPUT_TYPES"};
inline const StaticString A_UNIT_OUTPUT_TYPES{"UNIT_OUTPUT_TYPES"};
// Inputs and outputs of blocks; further ones are numbers.
inline const StaticString A_PORT_VALID{"PORT_VALID"};
inline const StaticString A_PORT_CHANNEL{"PORT_CHANNEL"};
inline const StaticString A_PORT_ENABLE{"PORT_ENABLE"};
inline const StaticString A_WIRE_VALID{"WIRE_VALID"};
inline const StaticString A_WIRE_CHANNEL{"WIRE_CHANNEL"};
inline const StaticString A_PRIM_WIRE_OUT{"PRIM_WIRE_OUT"};
inline const StaticString A_PRIM_WIRE_AUX{"PRIM_WIRE_AUX"};

// Types of the blocks that stand for a function.
inline const StaticString A_CAST_BLOCK{"CAST_BLOCK"};
inline const StaticString A_DIVIDE_BLOCK{"DIVIDE_BLOCK"};
inline const StaticString A_RECIPROCAL_BLOCK{"RECIPROCAL_BLOCK"};
inline const StaticString A_SQRT_BLOCK{"SQRT_BLOCK"};
inline const StaticString A_CUBEROOT_BLOCK{"CUBEROOT_BLOCK"};
inline const StaticString A_RECIP_SQRT_BLOCK{"RECIP_SQRT_BLOCK"};
inline const StaticString A_FLOOR_BLOCK{"FLOOR_BLOCK"};
inline const StaticString A_CEIL_BLOCK{"CEIL_BLOCK"};
inline const StaticString A_ROUND_BLOCK{"ROUND_BLOCK"};
inline const StaticString A_RINT_BLOCK{"RINT_BLOCK"};
inline const StaticString A_FRAC_BLOCK{"FRAC_BLOCK"};
inline const StaticString A_MOD_BLOCK{"MOD_BLOCK"};
inline const StaticString A_ABS_BLOCK{"ABS_BLOCK"};
inline const StaticString A_DIM_BLOCK{"DIM_BLOCK"};
inline const StaticString A_CMP_LT_BLOCK{"CMP_LT_BLOCK"};
inline const StaticString A_CMP_GE_BLOCK{"CMP_GE_BLOCK"};
inline const StaticString A_CMP_EQ_BLOCK{"CMP_EQ_BLOCK"};
inline const StaticString A_CMP_NE_BLOCK{"CMP_NE_BLOCK"};
inline const StaticString A_COMPARECTRL_BLOCK{"COMPARECTRL_BLOCK"};
inline const StaticString A_SIN_BLOCK{"SIN_BLOCK"};
inline const StaticString A_COS_BLOCK{"COS_BLOCK"};
inline const StaticString A_SINCOSFUSED_BLOCK{"SINCOSFUSED_BLOCK"};
inline const StaticString A_TAN_BLOCK{"TAN_BLOCK"};
inline const StaticString A_COT_BLOCK{"COT_BLOCK"};
inline const StaticString A_ASIN_BLOCK{"ASIN_BLOCK"};
inline const StaticString A_ARCSINPI_BLOCK{"ARCSINPI_BLOCK"};
inline const StaticString A_ATAN_BLOCK{"ATAN_BLOCK"};
inline const StaticString A_ARCTAN2_BLOCK{"ARCTAN2_BLOCK"};
inline const StaticString A_ARCTANPI_BLOCK{"ARCTANPI_BLOCK"};
inline const StaticString A_SINPIX_BLOCK{"SINPIX_BLOCK"};
inline const StaticString A_COSPIX_BLOCK{"COSPIX_BLOCK"};
inline const StaticString A_TANPIX_BLOCK{"TANPIX_BLOCK"};
inline const StaticString A_COTPIX_BLOCK{"COTPIX_BLOCK"};
inline const StaticString A_HYPOT_BLOCK{"HYPOT_BLOCK"};
inline const StaticString A_HYPOT3D_BLOCK{"HYPOT3D_BLOCK"};
inline const StaticString A_LOG_BLOCK{"LOG_BLOCK"};
inline const StaticString A_LOG1P_BLOCK{"LOG1P_BLOCK"};
inline const StaticString A_LOG10_BLOCK{"LOG10_BLOCK"};
inline const StaticString A_LOG2_BLOCK{"LOG2_BLOCK"};
inline const StaticString A_EXPM1_BLOCK{"EXPM1_BLOCK"};
inline const StaticString A_EXP2_BLOCK{"EXP2_BLOCK"};
inline const StaticString A_EXP10_BLOCK{"EXP10_BLOCK"};
inline const StaticString A_EXP_BLOCK{"EXP_BLOCK"};
inline const StaticString A_POWR_BLOCK{"POWR_BLOCK"};
inline const StaticString A_POW_BLOCK{"POW_BLOCK"};

}  // namespace kiln
