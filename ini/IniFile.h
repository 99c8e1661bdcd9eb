#pragma once

#include <map>
#include <string>

namespace Nima::Common::System::OS::Diagnostics {

/// Sections of wide key/value pairs with the interface of an INI-file reader and writer, but in memory only.
/// The platform has no private-profile data: `Open` finds one section, with an empty name and no keys, and
/// nothing is ever written to disk. Names and keys are compared character by character. Not synchronised: one
/// thread at a time.
class CIniFile {
  public:
    using Section = std::map<std::wstring, std::wstring>;

    CIniFile() = default;
    CIniFile(const CIniFile&) = delete;
    CIniFile& operator=(const CIniFile&) = delete;
    virtual ~CIniFile() = default;

    /// Keeps the path and fills the table from the platform's data. Always returns true.
    bool Open(std::wstring path);
    /// The platform's entries of a section: none.
    Section GetSectionData(const std::wstring& section);

    /// The stored text as a number, cut to 32 bits; the default if section or key is absent or the text is
    /// empty.
    unsigned int ReadValue(const wchar_t* section, const wchar_t* key, unsigned int defaultValue) const;
    /// The stored text; an empty text if section or key is absent, whatever the default.
    std::wstring ReadValue(const wchar_t* section, const wchar_t* key,
                           const std::wstring& defaultValue) const;
    /// Sets a value, creating section and key if necessary.
    void WriteValue(const wchar_t* section, const wchar_t* key, std::wstring value);
    /// Removes a section with its keys, if present.
    void DeleteSection(const wchar_t* section);
    /// The pairs of a section; none if it is absent.
    Section CopySection(const wchar_t* section) const;

  private:
    const std::wstring* Find(const wchar_t* section, const wchar_t* key) const;

    std::wstring path_;
    std::map<std::wstring, Section> sections_;
};

} // namespace Nima::Common::System::OS::Diagnostics
