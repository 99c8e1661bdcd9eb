#pragma once

#include "tests/support/Sandbox.h"
#include "tools/Program.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

namespace Nima::Testing {

using Json = nlohmann::json;

/// What a call of a program left.
struct Result {
    int code = -1;
    std::string output;
    std::string errors;

    Json Parsed() const { return Json::parse(output); }
    /// Whether the findings contain one with this code.
    bool Finds(const std::string& wanted) const {
        const Json findings = Parsed()["findings"];
        for (const char* kind : {"damage", "remarks"}) {
            for (const Json& finding : findings[kind]) {
                if (finding["code"] == wanted && !finding["sentence"].get<std::string>().empty()) {
                    return true;
                }
            }
        }
        return false;
    }
};

/// The files of a program's standard streams; those without a name stay as they are.
struct Streams {
    const char* input = "/dev/null"; ///< no terminal that could be asked
    const char* output = nullptr;
    const char* errors = nullptr;
};

/// Goes on as a whole program, with whose end this process ends.
[[noreturn]] inline void Become(const char* name, int (*program)(int, const char* const*),
                                const std::vector<std::string>& arguments, const Streams& streams) {
    std::vector<const char*> words{name};
    for (const std::string& argument : arguments) {
        words.push_back(argument.c_str());
    }
    for (const auto& [path, mode, stream] : {std::tuple(streams.input, "r", stdin),
                                             {streams.output, "w", stdout},
                                             {streams.errors, "w", stderr}}) {
        if (path != nullptr && std::freopen(path, mode, stream) == nullptr) {
            std::exit(99);
        }
    }
    std::exit(program(static_cast<int>(words.size()), words.data()));
}

/// Calls a whole program in a child process, with a file as its standard input.
inline Result Call(const char* name, int (*program)(int, const char* const*),
                   const std::vector<std::string>& arguments, const char* input = "/dev/null") {
    Result result;
    // Not in the working directory, whose files are examined.
    const std::string errors =
        std::filesystem::current_path().string() + "." + std::to_string(getpid()) + ".errors";
    result.output = CapturedOutput([&] {
        const int status = InChild([&] {
            Become(name, program, arguments, {input, nullptr, errors.c_str()});
        });
        result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
    });
    result.errors = ReadFile(errors);
    unlink(errors.c_str());
    return result;
}

inline Result Post(const std::vector<std::string>& arguments) {
    return Call("nima-post", NimaPost::RunProgram, arguments);
}

inline Result PostFrom(const std::string& input, const std::vector<std::string>& arguments) {
    return Call("nima-post", NimaPost::RunProgram, arguments, input.c_str());
}

} // namespace Nima::Testing
