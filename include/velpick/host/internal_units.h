#pragma once

namespace VelSDK::Common {

/// The scale between model lengths and the integer internal units that mesh vertices are
/// stored in: Get() internal units make one model length unit. The host default is 1000
/// (micrometres for millimetre models). The scale is process-wide host state, set by the host
/// application before it builds meshes; the picking library only reads it.
class MInternalUnits {
  public:
    static double Get();
    /// Throws std::invalid_argument unless unitsPerModelUnit is finite and positive.
    static void Set(double unitsPerModelUnit);
};

}  // namespace VelSDK::Common
