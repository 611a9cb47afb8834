// What objects of unknown classes do by themselves, read from their tables of virtual functions and from their type
// information (Itanium C++ ABI, sections 2.3, 2.5 and 2.9). The interface has no other way to tell, and calling a
// function to find out would have effects.
#pragma once

#include <cstddef>
#include <cstring>
#include <typeinfo>

namespace oxbeam {

// What an object calls for a virtual function of a class of the interface.
template <class Class, class Function>
const void* virtualFunction(const Class& object, Function Class::*function) {
    std::ptrdiff_t entry = 0;  // the pointer's first word: one more than the offset in the table
    std::memcpy(&entry, &function, sizeof entry);
    const std::byte* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&object), sizeof table);
    return *reinterpret_cast<const void* const*>(table + entry - 1);
}

// The object's class, or one between it and the interface's, replaces the function.
template <class Class, class Function>
bool overrides(const Class& object, Function Class::*function) {
    const Class base;
    return virtualFunction(object, function) != virtualFunction(base, function);
}

// One class derives from the other, by single inheritance, and is not the same.
bool derives(const std::type_info& derived, const std::type_info& base);

}  // namespace oxbeam
