#pragma once

inline constexpr char kVersion[] = "0.1";
