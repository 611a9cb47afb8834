#include "Engine/Packages/Overrides.h"

#include <cxxabi.h>

namespace oxbeam {

bool derives(const std::type_info& derived, const std::type_info& base) {
    const std::type_info* type = &derived;
    while (const auto* single = dynamic_cast<const abi::__si_class_type_info*>(type)) {
        type = single->__base_type;
        if (*type == base) return true;
    }
    return false;
}

}  // namespace oxbeam
