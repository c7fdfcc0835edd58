#pragma once

#include <string>

// What setters of light check, as reports show it.
inline const std::wstring s_directionCondition = L"!lightDirection.isOrigin()";
inline const std::wstring s_ambientCondition = L"(0.0 <= lightAmbient) && (lightAmbient <= 1.0)";
