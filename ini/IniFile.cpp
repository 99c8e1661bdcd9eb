#include "ini/IniFile.h"

#include "platform/Text.h"

#include <utility>
#include <vector>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

/// The names of all sections as a private profile lists them: each name ends with a zero, the list with an
/// empty name. There is no such data on this platform.
std::vector<wchar_t> ProfileSectionNames() {
    constexpr std::size_t kBufferLength = 4096;
    return std::vector<wchar_t>(kBufferLength, L'\0');
}

} // namespace

bool CIniFile::Open(std::wstring path) {
    path_ = std::move(path);
    const std::vector<wchar_t> names = ProfileSectionNames();
    sections_.clear();
    const wchar_t* name = names.data();
    do {
        const std::wstring section(name);
        sections_[section] = GetSectionData(section);
        name += section.size() + 1;
    } while (*name != L'\0');
    return true;
}

CIniFile::Section CIniFile::GetSectionData(const std::wstring& /*section*/) {
    return {};
}

const std::wstring* CIniFile::Find(const wchar_t* section, const wchar_t* key) const {
    if (section == nullptr || key == nullptr) {
        return nullptr;
    }
    const auto entry = sections_.find(section);
    if (entry == sections_.end()) {
        return nullptr;
    }
    const auto value = entry->second.find(key);
    return value == entry->second.end() ? nullptr : &value->second;
}

unsigned int CIniFile::ReadValue(const wchar_t* section, const wchar_t* key,
                                 unsigned int defaultValue) const {
    const std::wstring* value = Find(section, key);
    if (value == nullptr || value->empty()) {
        return defaultValue;
    }
    return static_cast<unsigned int>(_wtoi64(value->c_str()));
}

std::wstring CIniFile::ReadValue(const wchar_t* section, const wchar_t* key,
                                 const std::wstring& /*defaultValue*/) const {
    const std::wstring* value = Find(section, key);
    return value != nullptr ? *value : std::wstring();
}

void CIniFile::WriteValue(const wchar_t* section, const wchar_t* key, std::wstring value) {
    if (section != nullptr && key != nullptr) {
        sections_[section][key] = std::move(value);
    }
}

void CIniFile::DeleteSection(const wchar_t* section) {
    if (section != nullptr) {
        sections_.erase(section);
    }
}

CIniFile::Section CIniFile::CopySection(const wchar_t* section) const {
    const auto entry = sections_.find(section);
    return entry != sections_.end() ? entry->second : Section();
}

} // namespace Nima::Common::System::OS::Diagnostics
