#include "tools/symbols/DebugLines.h"

#include <array>
#include <cstdlib>

#include <cxxabi.h>
#include <dwarf.h>

namespace NimaPost {

namespace {

struct Freed {
    void operator()(void* memory) const { std::free(memory); } // NOLINT: it comes from a C library
};
template <class Thing>
using FromC = std::unique_ptr<Thing, Freed>;

std::string TextOf(Dwarf_Die& die, unsigned attribute) {
    Dwarf_Attribute found;
    const char* const text = dwarf_formstring(dwarf_attr_integrate(&die, attribute, &found));
    return text != nullptr ? text : "";
}

std::uint64_t NumberOf(Dwarf_Die& die, unsigned attribute) {
    Dwarf_Attribute found;
    Dwarf_Word number = 0;
    return dwarf_formudata(dwarf_attr(&die, attribute, &found), &number) == 0 ? number : 0;
}

bool IsFunction(int tag) {
    return tag == DW_TAG_subprogram || tag == DW_TAG_entry_point || tag == DW_TAG_inlined_subroutine;
}

/// The namespaces and classes around a function, each with "::".
std::string Around(Dwarf_Die& die) {
    std::string text;
    Dwarf_Attribute attribute;
    Dwarf_Die origin = die;
    for (const unsigned link : {DW_AT_abstract_origin, DW_AT_specification}) {
        Dwarf_Die next;
        if (dwarf_formref_die(dwarf_attr(&origin, link, &attribute), &next) != nullptr) {
            origin = next;
        }
    }
    Dwarf_Die* scopes = nullptr;
    const int count = dwarf_getscopes_die(&origin, &scopes);
    const FromC<Dwarf_Die> owned(scopes);
    for (int i = 1; i < count; ++i) {
        const int tag = dwarf_tag(&scopes[i]);
        if (tag != DW_TAG_namespace && tag != DW_TAG_class_type && tag != DW_TAG_structure_type &&
            tag != DW_TAG_union_type) {
            continue;
        }
        const char* const name = dwarf_diename(&scopes[i]);
        std::string around = name != nullptr ? name : tag == DW_TAG_namespace ? "(anonymous namespace)" : "";
        text.insert(0, around.empty() ? around : around + "::");
    }
    return text;
}

/// With parameters where the compiler has kept the linker's name.
std::string NameOf(Dwarf_Die& die) {
    for (const unsigned attribute : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name}) {
        const std::string mangled = TextOf(die, attribute);
        if (!mangled.empty()) {
            return PlainName(mangled);
        }
    }
    const std::string name = TextOf(die, DW_AT_name);
    return name.empty() ? name : Around(die) + name;
}

/// The name of a file in the unit's list, by its number.
std::string FileOf(Dwarf_Die& unit, std::uint64_t number) {
    Dwarf_Files* files = nullptr;
    std::size_t count = 0;
    if (dwarf_getsrcfiles(&unit, &files, &count) != 0 || number >= count) {
        return {};
    }
    const char* const name = dwarf_filesrc(files, number, nullptr, nullptr);
    return name != nullptr ? name : "";
}

/// A place in a source.
struct Place {
    std::string file;
    std::uint64_t line = 0;
};

Place PlaceOf(Dwarf_Die& unit, std::uint64_t address) {
    Place place;
    int number = 0;
    Dwarf_Line* const line = dwarf_getsrc_die(&unit, address);
    if (line == nullptr || dwarf_lineno(line, &number) != 0 || number <= 0) {
        return place; // line 0 is code that stands in no source
    }
    const char* const file = dwarf_linesrc(line, nullptr, nullptr);
    return {file != nullptr ? file : "", static_cast<std::uint64_t>(number)};
}

} // namespace

std::string PlainName(const std::string& name) {
    if (!name.starts_with("_Z")) {
        return name;
    }
    int status = 0;
    const FromC<char> plain(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status));
    return plain != nullptr && status == 0 ? plain.get() : name;
}

bool DebugLines::FindUnit(std::uint64_t address, Dwarf_Die& unit) {
    if (dwarf_addrdie(dwarf_.get(), address, &unit) != nullptr) {
        return true;
    }
    // The table of ranges is missing, or leaves some units out.
    Dwarf_CU* next = nullptr;
    while (dwarf_get_units(dwarf_.get(), next, &next, nullptr, nullptr, &unit, nullptr) == 0) {
        if (dwarf_haspc(&unit, address) > 0) {
            return true;
        }
    }
    return false;
}

std::vector<Dwarf_Die> DebugLines::ScopesAt(Dwarf_Die& unit, std::uint64_t address) {
    Dwarf_Die* scopes = nullptr;
    int count = dwarf_getscopes(&unit, address, &scopes);
    FromC<Dwarf_Die> owned(scopes);
    if (count <= 0) {
        return {};
    }
    // Those around an inlined function are the ones of its source; what is wanted is where its code lies.
    Dwarf_Die innermost;
    if (dwarf_offdie(dwarf_.get(), dwarf_dieoffset(&scopes[0]), &innermost) == nullptr) {
        return {};
    }
    scopes = nullptr;
    count = dwarf_getscopes_die(&innermost, &scopes);
    owned.reset(scopes);
    return count > 0 ? std::vector<Dwarf_Die>(scopes, scopes + count) : std::vector<Dwarf_Die>();
}

std::vector<Call> DebugLines::CallsAt(std::uint64_t address) {
    std::vector<Call> calls;
    Dwarf_Die unit;
    if (dwarf_ == nullptr || !FindUnit(address, unit)) {
        return calls;
    }
    Place place = PlaceOf(unit, address);
    for (Dwarf_Die& scope : ScopesAt(unit, address)) {
        const int tag = dwarf_tag(&scope);
        if (!IsFunction(tag)) {
            continue;
        }
        const bool inlined = tag == DW_TAG_inlined_subroutine;
        calls.push_back({NameOf(scope), place.file, place.line, inlined});
        if (!inlined) {
            return calls;
        }
        place = {FileOf(unit, NumberOf(scope, DW_AT_call_file)), NumberOf(scope, DW_AT_call_line)};
    }
    if (place.line != 0) {
        calls.push_back({"", place.file, place.line, false});
    }
    return calls;
}

} // namespace NimaPost
