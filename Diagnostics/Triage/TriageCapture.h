#pragma once

namespace Nima::Common::System::OS::Diagnostics {

/// Splits a path at its last '/' or '\' into the folder, separator included, and the name. Sizes are in
/// characters. The outputs are zeroed first and stay empty if there is no separator. A folder is cut to fit;
/// a name that does not fit stays empty. Either output may be null; a null path changes nothing.
void SplitPath(const wchar_t* path, wchar_t* folder, int folderSize, wchar_t* name, int nameSize);

} // namespace Nima::Common::System::OS::Diagnostics
