// Loading a library that needs hundreds of others in half the time.
#pragma once

#include <filesystem>

namespace oxbeam {

// dlopen, RTLD_LAZY and RTLD_LOCAL, with the libraries that it needs opened one by one before it, those that need no other
// ones first. The dynamic linker looks for each of some hundred thousand symbols in all libraries that are opened
// together, one after the other; of one that is opened by itself, only in those that it needs. Symbols are bound to the
// same libraries, but for those that several of them offer, where a library's own come before strangers'. What cannot be
// opened by itself, or is not found, is left to the linker.
void* openLeafFirst(const std::filesystem::path& library);

}  // namespace oxbeam
