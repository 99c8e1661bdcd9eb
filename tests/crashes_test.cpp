// The crashes of a folder, as nima-post tells of them.

#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"

#include <string>

#include <unistd.h>

#include <Diagnostics/CrashApi.h>

using namespace Nima::Testing;

namespace {

class Crashes : public Sandbox {};

/// A process that ends itself by a report leaves this file.
std::string ReportOf(const char* message, const char* file) {
    std::string left;
    InChild([&] { HandleFatalCrash(message, "", 0x31AC05, file, 54); });
    for (const std::string& name : Listing(".")) {
        left = name.starts_with("stacktrace") ? name : left;
    }
    return left;
}

} // namespace

TEST_F(Crashes, AHostsOwnReportIsToldByItsMessageAndPlace) {
    struct Case {
        std::string message, file, headline;
        bool cut;
    };
    for (const Case& each :
         {Case{"the fuser is on fire", "ways_to_die.cpp", "the fuser is on fire (ways_to_die.cpp, line 54)",
               false},
          Case{"two\nlines]", "/a, line 7/b.cpp", "two\\x0alines] (/a, line 7/b.cpp, line 54)", false},
          Case{std::string(200, 'x'), "f.cpp", std::string(73, 'x') + "... (f.cpp, line 54)", true}}) {
        const std::string file = ReportOf(each.message.c_str(), each.file.c_str());
        const Result result = Post({"crash", file, "--json"});
        ASSERT_EQ(result.code, 0) << result.output;
        const Json json = result.Parsed();
        EXPECT_EQ(json["title"], each.headline);
        EXPECT_EQ(json["host"]["line"], 54);
        EXPECT_EQ(json["host"]["code"], "0x0031ac05");
        EXPECT_EQ(result.Finds("message-cut"), each.cut);
        EXPECT_EQ(Lines(Post({"crash", file}).output).at(0), each.headline);
        unlink(file.c_str());
    }
}
