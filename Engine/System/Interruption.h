// A wish to stop that comes from outside while something is waited for.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <atomic>
#include <stdexcept>

namespace oxbeam {

// Not an Error: nothing is wrong with what was asked for. Its text says what was left.
class Interruption : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// For the whole process: from here on, reading a file ends in an Interruption once `stop` is set. It must live on.
OXBEAM_API void interruptBy(const std::atomic<bool>& stop);

OXBEAM_API bool interrupted();

}  // namespace oxbeam
