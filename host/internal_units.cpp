#include <velpick/host/internal_units.h>

#include <atomic>
#include <cmath>
#include <stdexcept>

namespace VelSDK::Common {
namespace {
std::atomic<double> unitsPerModelUnit{1000.0};
}

double MInternalUnits::Get() {
    return unitsPerModelUnit.load(std::memory_order_relaxed);
}

void MInternalUnits::Set(double value) {
    if (!std::isfinite(value) || value <= 0.0)
        throw std::invalid_argument("MInternalUnits::Set: units per model unit must be positive");
    unitsPerModelUnit.store(value, std::memory_order_relaxed);
}

}  // namespace VelSDK::Common
