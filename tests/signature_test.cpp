// Which stack traces are taken for the same cause, and which reports.

#include "tools/fleet/Signature.h"

#include "tests/support/Sandbox.h"

#include <string>
#include <vector>

using namespace Nima::Testing;

TEST(Signature, PairsThatFallTogetherAndThatDoNot) {
    const std::string handler = "0x7fe142d026c8: (signalHandler(int)+0x1d8)\n0x7fe1: (__restore_rt+0x0)\n";
    const std::string rest =
        "0x5612: (Job::Run()+0x8)\n0x5613: (main+0x8)\n0x7fe1: (__libc_start_main+0x85)\n";
    const std::string longName =
        "Tray::Feed(std::map<std::string, std::vector<unsigned long>, std::less<std::str";
    const auto signature = [&](const std::string& frames) {
        return NimaPost::SignatureOfStack(Lines(handler + frames + rest), "Fatal signal").text;
    };
    struct Pair {
        const char* what;
        std::string first;
        std::string second;
        bool together;
    };
    const std::vector<Pair> pairs{
        {"addresses and offsets", "0x5511: (Feed(int)+0x11d)\n", "0xb6f1: (Feed(int)+0x8)\n", true},
        {"overloads", "0x1: (Feed(int)+0x1)\n", "0x1: (Feed(char)+0x1)\n", false},
        {"template arguments", "0x1: (Queue<int>::Pop(int&)+0x1)\n",
         "0x1: (Queue<std::pair<Job, Job*> >::Pop(std::pair<Job, Job*>&)+0x1)\n", true},
        {"a template's result", "0x1: (int Largest<int>(int)+0x1)\n", "0x1: (long Largest<long>(long)+0x1)\n",
         true},
        {"functions of a template", "0x1: (Queue<int>::Pop()+0x1)\n", "0x1: (Queue<int>::Push()+0x1)\n",
         false},
        {"operators", "0x1: (Page::operator<(Page const&) const+0x1)\n",
         "0x1: (Page::operator<<(Page const&) const+0x1)\n", false},
        {"operators of templates", "0x1: (Stream& Log::operator<< <int>(Log&, int)+0x1)\n",
         "0x1: (Stream& Log::operator<< <char>(Log&, char)+0x1)\n", true},
        {"operators of classes", "0x1: (Stream& Log::operator<< <int>(Log&, int)+0x1)\n",
         "0x1: (Stream& Page::operator<< <int>(Page&, int)+0x1)\n", false},
        {"comparisons in arguments", "0x1: (Fixed<(4>2)>::Round()+0x1)\n",
         "0x1: (Fixed<(8>2)>::Round()+0x1)\n", true},
        {"recursion", "0x1: (Find(int)+0x1)\n", "0x1: (Find(int)+0x9)\n0x1: (Find(int)+0x1)\n", true},
        {"recursion of two", "0x1: (Odd()+0x1)\n0x1: (Even()+0x1)\n",
         "0x1: (Odd()+0x1)\n0x1: (Even()+0x1)\n0x1: (Odd()+0x2)\n0x1: (Even()+0x1)\n", true},
        {"foreign frames", "0x1: (Feed(int)+0x1)\n",
         "0x7f: (memcpy+0x1)\n0x1: (Feed(int)+0x1)\n0x1: (void std::__invoke<Job>(Job&&)+0x3)\n", true},
        {"neighbours of what the C library does not export", "0x1: (Feed(int)+0x1)\n",
         "0x7f: (__nss_database_lookup+0x1b)\n0x7f: (qsort_r+0x1)\n0x1: (Feed(int)+0x1)\n", true},
        {"a cut line with a foreign result", "0x1: (std::vector<Page> Engine::Render<std::char_traits<char\n",
         "0x7f: (memcpy+0x1)\n", false},
        {"a line that is cut in a result",
         "0x1: (std::enable_if<(sizeof (int))>(2)), std::vector<int> >::ty\n", "0x7f: (memcpy+0x1)\n", false},
        {"callers", "0x1: (Feed(int)+0x1)\n0x1: (Print()+0x1)\n", "0x1: (Feed(int)+0x1)\n0x1: (Copy()+0x1)\n",
         false},
        {"a second entry of the handler", "0x1: (Feed(int)+0x1)\n",
         "0x7f: (abort+0xcf)\n0x7f: (signalHandler(int)+0x9)\n0x1: (Feed(int)+0x1)\n", true},
        {"parts of a function", "0x1: (Feed(int) [clone .cold]+0x1)\n", "0x1: (Feed(int)+0x1)\n", true},
        {"cut lines", "0x1: (" + longName + "\n", "0x2: (" + longName + "\n", true},
        {"cut lines that differ late", "0x1: (" + longName + "a\n", "0x1: (" + longName + "b\n", false},
        {"a cut offset", "0x1: (" + longName + "+0x1)\n", "0x1: (" + longName + "+0x\n", true},
        {"own names like foreign ones", "0x1: (memcpyPages()+0x1)\n", "0x1: (poll(Tray&)+0x1)\n", false},
        {"an own name that C has, too", "0x1: (poll(Tray&)+0x1)\n", "0x1: (poll+0x1)\n", false},
    };
    for (const Pair& pair : pairs) {
        const std::string first = signature(pair.first);
        const std::string second = signature(pair.second);
        EXPECT_EQ(first == second, pair.together) << pair.what << ": " << first << " and " << second;
    }
    // Where nothing of the product has a name, the place in its page has to do; it survives the next load.
    const auto nameless = [](const std::string& address) {
        return NimaPost::SignatureOfStack(
                   {"0x7f1: (signalHandler(int)+0x1)",
                    address + ": -- error: unable to obtain symbol name for this frame",
                    "0x7f2: (abort+0x1)"},
                   "Fatal signal")
            .text;
    };
    EXPECT_EQ(nameless("0x56120000f4d"), nameless("0x55510000f4d"));
    EXPECT_NE(nameless("0x56120000f4d"), nameless("0x56120000f4e"));
    // A call of a null pointer ends the trace where the signal came.
    EXPECT_EQ(NimaPost::SignatureOfStack({"0x7f1: (signalHandler(int)+0x1)", "0x7f2: (__sigaction+0x40)"},
                                         "Fatal signal")
                  .text,
              "Fatal signal, without frames");

    EXPECT_EQ(NimaPost::SignatureOfReport("31AC05", "/src/a/fuser.cpp", "24"),
              NimaPost::SignatureOfReport("0x0031ac05", "C:\\build 7\\fuser.cpp", "24"));
    EXPECT_NE(NimaPost::SignatureOfReport("31AC05", "fuser.cpp", "24"),
              NimaPost::SignatureOfReport("31AC05", "fuser.cpp", "25"));
    EXPECT_NE(NimaPost::SignatureOfReport("31AC05", "fuser.cpp", "24"),
              NimaPost::SignatureOfReport("31AC06", "fuser.cpp", "24"));
}
