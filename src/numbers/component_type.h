#pragma once

// The operator under test, by its number: the key of the operator rows, of the hand tests and of
// the choice of population. Words that need no distinction share a number.
using componentType = int;

inline constexpr componentType FPADD = 15;
inline constexpr componentType FPMUL = 17;
inline constexpr componentType FPMULTACC = 26;
inline constexpr componentType FPFOLDEDALU = 87;
inline constexpr componentType MODULAR_MULT_BARRETT = 112;
