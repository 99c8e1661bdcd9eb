/// nima-pages: writes the manual pages and the shell completion of nima-post and nima-ctl from the tables
/// that these parse their arguments with. Run by the build.

#include "ctl/Verbs.h"
#include "pages/Pages.h"
#include "tools/commands/Commands.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <CLI/CLI.hpp>

namespace {

bool Write(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) {
        std::cerr << "nima-pages: cannot write " << path.string() << '\n';
    }
    return static_cast<bool>(file);
}

bool WritePages(const std::filesystem::path& folder, const CLI::App& app) {
    const NimaPages::Program program = NimaPages::ReadTable(app);
    return Write(folder / "man1" / (program.name + ".1"), NimaPages::ManualPage(program)) &&
           Write(folder / "bash" / program.name, NimaPages::BashCompletion(program)) &&
           Write(folder / "zsh" / ("_" + program.name), NimaPages::ZshCompletion(program));
}

bool WriteAllPages(const std::filesystem::path& folder) {
    CLI::App post;
    NimaPost::Context postContext;
    NimaPost::Run runPost;
    NimaPost::SetUpProgram(post, postContext, runPost);
    CLI::App ctl;
    NimaCtl::Context ctlContext;
    NimaCtl::Run runCtl;
    NimaCtl::SetUpProgram(ctl, ctlContext, runCtl);
    return WritePages(folder, post) && WritePages(folder, ctl);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: nima-pages FOLDER\n";
        return 2;
    }
    try {
        return WriteAllPages(argv[1]) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "nima-pages: " << error.what() << '\n';
        return 1;
    }
}
