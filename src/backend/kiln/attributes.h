#pragma once

#include "backend/kiln/values.h"

namespace kiln {

// Attributes of the kit: keys and values of parameters.
inline const StaticString A_TRUE{"TRUE"};
inline const StaticString A_FALSE{"FALSE"};
// Of a model: the latency that every pair of an input and an output must have.
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_PAIR{"SYNTH_LATENCY_CONSTRAINT_PAIR"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_EVERY_IO{"SYNTH_LATENCY_CONSTRAINT_EVERY_IO"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_VALUE{"SYNTH_LATENCY_CONSTRAINT_VALUE"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_MODE{"SYNTH_LATENCY_CONSTRAINT_MODE"};
inline const StaticString A_SYNTH_LATENCY_CONSTRAINT_EQ{"SYNTH_LATENCY_CONSTRAINT_EQ"};
// Of a model: what its bench makes of a wrong answer.
inline const StaticString A_SYNTH_ATB_GPIO_MISMATCH{"SYNTH_ATB_GPIO_MISMATCH"};
inline const StaticString A_SYNTH_ATB_CHANNEL_MISMATCH{"SYNTH_ATB_CHANNEL_MISMATCH"};
inline const StaticString A_SYNTH_ATB_MODE_ERROR{"SYNTH_ATB_MODE_ERROR"};
inline const StaticString A_SYNTH_ATB_MODE_WARNING{"SYNTH_ATB_MODE_WARNING"};
// Of a unit: with A_FALSE, its data registers need no reset.
inline const StaticString A_CONTROLFLOW_TAG{"CONTROLFLOW_TAG"};

}  // namespace kiln
