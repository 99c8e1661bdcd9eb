// What nima-post reads: the same device as a folder, in archives of every format and from standard input, and
// what it makes of archives that want to do harm. Archives are written by the library that unpacks them, or
// by hand.

#include "ctl/Program.h"
#include "tests/support/DeviceFiles.h"
#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <Diagnostics/Formats.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;
using namespace Nima::Testing;

namespace {

class Input : public Sandbox {};

std::int64_t MachineTime(clockid_t clock) {
    timespec now{};
#ifdef SYS_clock_gettime64
    ::syscall(SYS_clock_gettime64, clock, &now);
#else
    ::syscall(SYS_clock_gettime, clock, &now);
#endif
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

/// The clocks of a device that nothing holds up: between two readings no more than a millisecond goes by,
/// however busy this machine is.
class UnhurriedClocks {
  public:
    UnhurriedClocks() {
        for (std::int64_t narrowest = INT64_MAX, i = 0; i < 100; ++i) {
            const std::int64_t before = MachineTime(CLOCK_MONOTONIC);
            const std::int64_t boot = MachineTime(CLOCK_BOOTTIME);
            const std::int64_t wall = MachineTime(CLOCK_REALTIME);
            last_ = MachineTime(CLOCK_MONOTONIC);
            if (last_ - before < narrowest) {
                narrowest = last_ - before;
                boot_ = boot - before;
                wall_ = wall - before;
            }
        }
    }

    /// From now on this process has these clocks.
    void Begin();

    std::int64_t Read(clockid_t clock) {
        constexpr std::int64_t kMost = 1'000'000;
        const std::lock_guard<std::mutex> lock(mutex_);
        const std::int64_t now = MachineTime(CLOCK_MONOTONIC);
        late_ += std::max<std::int64_t>(now - last_ - kMost, 0);
        last_ = now;
        return now - late_ + (clock == CLOCK_REALTIME ? wall_ : clock == CLOCK_BOOTTIME ? boot_ : 0);
    }

  private:
    std::mutex mutex_;
    std::int64_t boot_ = 0;
    std::int64_t wall_ = 0;
    std::int64_t last_ = 0;
    std::int64_t late_ = 0;
};

/// While there are any, all clocks of the process are these.
UnhurriedClocks* g_Clocks = nullptr;

void UnhurriedClocks::Begin() {
    last_ = MachineTime(CLOCK_MONOTONIC);
    g_Clocks = this;
}

/// An archive in a file, or a compressed file.
class Packed {
  public:
    Packed(const std::string& path, int format, int filter, const char* options = nullptr)
        : archive_(archive_write_new()) {
        EXPECT_EQ(archive_write_set_format(archive_, format), ARCHIVE_OK) << path;
        EXPECT_EQ(archive_write_add_filter(archive_, filter), ARCHIVE_OK) << path;
        if (options != nullptr) {
            archive_write_set_passphrase(archive_, "secret");
            EXPECT_EQ(archive_write_set_options(archive_, options), ARCHIVE_OK) << options;
        }
        EXPECT_EQ(archive_write_open_filename(archive_, path.c_str()), ARCHIVE_OK) << path;
    }
    Packed(const Packed&) = delete;
    Packed& operator=(const Packed&) = delete;
    ~Packed() {
        archive_write_close(archive_);
        archive_write_free(archive_);
    }

    Packed& Add(const std::string& name, const std::string& content, long seconds = 1'795'500'000) {
        return Entry(name, AE_IFREG, content, seconds, nullptr);
    }
    Packed& Link(const std::string& name, const char* target, bool hard = false) {
        return Entry(name, hard ? AE_IFREG : AE_IFLNK, "", 0, target);
    }
    Packed& Special(const std::string& name, unsigned type) { return Entry(name, type, "", 0, nullptr); }

  private:
    Packed& Entry(const std::string& name, unsigned type, const std::string& content, long seconds,
                  const char* link) {
        archive_entry* const entry = archive_entry_new();
        archive_entry_set_pathname(entry, name.c_str());
        archive_entry_set_filetype(entry, type);
        archive_entry_set_perm(entry, 0644);
        archive_entry_set_mtime(entry, seconds, 0);
        archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
        if (link != nullptr) {
            (type == AE_IFREG ? archive_entry_set_hardlink : archive_entry_set_symlink)(entry, link);
        }
        // A name that is no text is warned about.
        EXPECT_GE(archive_write_header(archive_, entry), ARCHIVE_WARN) << name;
        if (!content.empty()) {
            archive_write_data(archive_, content.data(), content.size());
        }
        archive_entry_free(entry);
        return *this;
    }

    archive* archive_;
};

/// Of formats that the library can write and nima-post reads.
struct Format {
    const char* name;
    int format;
    int filter;
};
constexpr Format kFormats[]{
    {"tar", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_NONE},
    {"tar.gz", ARCHIVE_FORMAT_TAR_PAX_INTERCHANGE, ARCHIVE_FILTER_GZIP},
    {"tar.bz2", ARCHIVE_FORMAT_TAR_GNUTAR, ARCHIVE_FILTER_BZIP2},
    {"tar.xz", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_XZ},
    {"tar.zst", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_ZSTD},
    {"zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE},
};

void Compress(const std::string& path, int filter, const std::string& content) {
    Packed(path, ARCHIVE_FORMAT_RAW, filter).Add("data", content);
}

/// Lines of one thread, a hundredth of a second apart.
std::string LogLines(int first, int count) {
    std::string lines;
    for (int i = first; i < first + count; ++i) {
        lines += LogLine(100 + i / 100 + i % 100 * 10'000'000, "<WARN> <Feeder> sheet " + std::to_string(i));
    }
    return lines;
}

std::size_t Sheets(const Result& result) {
    return CountOf(result.output, " sheet ");
}

/// All that `log` says of its lines, as JSON: of files that were named, or as a view of a folder.
std::string Told(const Result& result) {
    const Json parsed = result.Parsed();
    const bool view = parsed.contains("events");
    std::string told;
    const auto add = [&](const Json& from, std::initializer_list<const char*> members) {
        for (const char* const member : members) {
            told += from.contains(member) ? from[member].dump() + " " : "- ";
        }
        told += "\n";
    };
    for (const Json& line : parsed[view ? "events" : "lines"]) {
        add(line, {"time", "elapsed_ns", "later_by_seconds", "earlier_by_seconds", "boot", "process",
                   "overwritten", "thread", "level", view ? "name" : "tracer", view ? "text" : "message"});
    }
    for (const Json& process : parsed["processes"]) {
        add(process, {"process", "boot", "first", "last", "threads"});
    }
    return told + parsed["findings"].dump();
}

bool Says(const Result& result, const std::string& code) {
    return result.errors.find(code) != std::string::npos;
}

const std::map<std::string, std::string>& Device() {
    static const std::map<std::string, std::string> files{{"device.log.1", LogLines(0, 50)},
                                                          {"device.log", LogLines(50, 50)},
                                                          {"notes.txt", "nothing of ours"}};
    return files;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock_id, timespec* tp) noexcept {
    const std::int64_t now = g_Clocks != nullptr ? g_Clocks->Read(clock_id) : MachineTime(clock_id);
    tp->tv_sec = static_cast<time_t>(now / 1'000'000'000);
    tp->tv_nsec = static_cast<long>(now % 1'000'000'000);
    return 0;
}

TEST_F(Input, ReadsADeviceFromEveryFormatAndFromStandardInput) {
    std::filesystem::create_directory("folder");
    for (const auto& [name, content] : Device()) {
        WriteFile("folder/" + name, content);
    }
    const Result folder = Post({"log", "folder"});
    ASSERT_EQ(folder.code, 0) << folder.errors;
    ASSERT_EQ(Sheets(folder), 100U);
    for (const Format& format : kFormats) {
        const std::string path = std::string("unit.") + format.name;
        {
            Packed packed(path, format.format, format.filter);
            for (const auto& [name, content] : Device()) {
                packed.Add("unit-4711/" + name, content);
            }
        }
        for (const Result& result : {Post({"log", path}), PostFrom(path, {"log", "-"})}) {
            EXPECT_EQ(result.code, 0) << path << result.errors;
            EXPECT_EQ(result.output, folder.output) << path;
        }
        EXPECT_EQ(Post({"timeline", path, "-o", path}).code, 2) << "written over";
        EXPECT_EQ(Post({"timeline", path, "-o", "out.json"}).code, 0) << path;
        EXPECT_EQ(CountOf(ReadFile("out.json"), "sheet "), 100U) << path;
    }
    EXPECT_EQ(Sheets(PostFrom("folder/device.log", {"log", "-"})), 50U);
}

TEST_F(Input, ReadsCompressedFilesLikePlainOnesAndKnowsTheirNumbers) {
    WriteFile("plain.log", LogLines(60, 20));
    WriteFile("plain.log.1", LogLines(40, 20));
    WriteFile("plain.log.2", LogLines(20, 20));
    WriteFile("plain.log.3", Calibration(1'000'000'000, "1024163100.100") + LogLines(0, 20));
    std::filesystem::create_directory("folder");
    std::filesystem::copy_file("plain.log", "folder/device.log");
    Compress("folder/device.log.1.gz", ARCHIVE_FILTER_GZIP, ReadFile("plain.log.1"));
    Compress("folder/device.log.2.xz", ARCHIVE_FILTER_XZ, ReadFile("plain.log.2"));
    Compress("folder/device.log.3.zst", ARCHIVE_FILTER_ZSTD, ReadFile("plain.log.3"));
    Compress("folder/other.bz2", ARCHIVE_FILTER_BZIP2, "no log");
    const Result plain = Post({"log", "plain.log"});
    ASSERT_EQ(Sheets(plain), 80U);
    EXPECT_EQ(Post({"log", "folder/device.log"}).output, plain.output);
    // The view of the folder tells the same of each line.
    EXPECT_EQ(Told(Post({"log", "folder", "--json"})), Told(Post({"log", "plain.log", "--json"})));
    EXPECT_EQ(Sheets(Post({"log", "folder/device.log.1.gz", "--alone"})), 20U);
    EXPECT_EQ(Sheets(PostFrom("folder/device.log.2.xz", {"log", "-"})), 20U);
    // A file beside its own compressed form is another log, so that none of the two is lost.
    Compress("folder/device.log.gz", ARCHIVE_FILTER_GZIP, LogLines(80, 5));
    EXPECT_EQ(Sheets(Post({"log", "folder"})), 85U);
    // The program's own output is not unpacked, so that nobody notices that one is cut. It is written over.
    WriteFile("folder/more.log", LogLines(0, 2000));
    for (int go = 0; go < 2; ++go) {
        ASSERT_EQ(Post({"timeline", "folder", "-o", "folder/out.json.gz"}).code, 0);
        const std::string timeline = ReadFile("folder/out.json.gz");
        WriteFile("folder/out.json.gz", timeline.substr(0, timeline.size() - 100));
    }
    EXPECT_EQ(Post({"summary", "folder"}).code, 0);
}

TEST_F(Input, TakesFoldersAndArchivesWithinOthersAsDevices) {
    std::filesystem::create_directories("all/unit-2/empty");
    WriteFile("all/unit-2/device.log", LogLines(0, 2));
    Packed("all/unit-1.tar.gz", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_GZIP)
        .Add("device.log", LogLines(0, 1))
        .Add("inner/device.log", LogLines(0, 4));
    Packed("all.zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE)
        .Add("unit-2/device.log", LogLines(0, 2))
        .Add("unit-1.tar.gz", ReadFile("all/unit-1.tar.gz"));
    for (const char* input : {"all", "all.zip"}) {
        const Result all = Post({"log", input, "--json"});
        EXPECT_EQ(all.code, 0) << all.errors;
        const Json logs = all.Parsed();
        ASSERT_EQ(logs.size(), 3U) << input;
        EXPECT_EQ(logs[0]["events"].size(), 1U);
        EXPECT_EQ(logs[1]["events"].size(), 4U);
        EXPECT_EQ(logs[2]["events"].size(), 2U);
        const Json one = Post({"log", input, "--json", "--device", "unit-1.tar.gz/inner"}).Parsed();
        EXPECT_EQ(one["events"].size(), 4U);
        EXPECT_EQ(Post({"log", input, "--device", "unit-3"}).code, 2);
        std::filesystem::create_directory("out");
        EXPECT_EQ(Post({"timeline", input, "-o", "out/t.json"}).code, 0);
        EXPECT_EQ(Listing("out"), (std::vector<std::string>{"t-unit-1.tar.gz-inner.json",
                                                            "t-unit-1.tar.gz.json", "t-unit-2.json"}));
        std::filesystem::remove_all("out");
    }
    // Each archive in another one costs a level of depth; the compressed log costs none.
    Compress("device.log.gz", ARCHIVE_FILTER_GZIP, LogLines(0, 7));
    Packed("deep.tar", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_NONE)
        .Add("all.zip", ReadFile("all.zip"))
        .Add("device.log.gz", ReadFile("device.log.gz"));
    const Result deep = Post({"log", "deep.tar"});
    EXPECT_EQ(deep.code, 1);
    EXPECT_EQ(Sheets(deep), 9U);
    EXPECT_TRUE(Says(deep, "--max-depth")) << deep.errors;
    EXPECT_EQ(Sheets(Post({"log", "deep.tar", "--max-depth", "3"})), 14U);
}

TEST_F(Input, ShowsArchivesAsItShowsFolders) {
    for (const int unit : {1, 2}) {
        const std::string name = "unit-" + std::to_string(unit);
        std::filesystem::create_directory(name);
        WriteFile(name + "/device.log", LogLines(0, unit * 40));
        Packed(name + ".tar.gz", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_GZIP)
            .Add("device.log", LogLines(0, unit * 40));
    }
    Packed("both.zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE)
        .Add("unit-1/device.log", LogLines(0, 40))
        .Add("unit-2/device.log", LogLines(0, 80));
    const auto post = [](std::string command, std::vector<std::string> words, const std::string& input) {
        words.insert(words.begin(), {std::move(command), input});
        return PostFrom("unit-1.tar.gz", words);
    };
    const std::vector<std::pair<std::string, std::vector<std::string>>> calls{
        {"show", {}},
        {"show", {"--format", "csv"}},
        {"show", {"--grep", "sheet 1[0-9]", "--last", "3"}},
        {"log", {"--process", "1", "--around", "end", "--within", "100ms"}},
    };
    for (const auto& [command, words] : calls) {
        const Result folder = post(command, words, "unit-1");
        const Result other = post(command, words, "unit-2");
        EXPECT_EQ(folder.code, 0) << folder.errors;
        EXPECT_GE(CountOf(folder.output, "sheet "), 3U) << command << words.size();
        EXPECT_EQ(post(command, words, "unit-1.tar.gz").output, folder.output);
        EXPECT_EQ(post(command, words, "-").output, folder.output);
        if (words.size() != 2) {
            EXPECT_EQ(post(command, words, "both.zip").output,
                      "== unit-1\n" + folder.output + "\n== unit-2\n" + other.output);
        }
    }
    EXPECT_EQ(CountOf(Post({"show", "both.zip", "--format", "jsonl"}).output, "\"unit-2/device.log\""), 80U);
    const Result table = Post({"show", "both.zip", "--format", "csv"});
    EXPECT_EQ(CountOf(table.output, "time,certainty,"), 1U);
    EXPECT_EQ(CountOf(table.output, ",unit-1/device.log,"), 40U);
    const Result summary = Post({"summary", "unit-1"});
    EXPECT_GE(CountOf(summary.output, "unit-1"), 2U) << summary.output;
    std::string expected = summary.output;
    for (std::size_t at = 0; (at = expected.find("unit-1", at)) != std::string::npos; at += 13) {
        expected.replace(at, 6, "unit-1.tar.gz");
    }
    EXPECT_EQ(Post({"unit-1.tar.gz"}).output, expected);
    EXPECT_EQ(Lines(PostFrom("unit-1.tar.gz", {"-"}).output).size(), Lines(expected).size());
    EXPECT_EQ(Post({"summary", "both.zip", "--json"}).Parsed()[1]["folder"], "unit-2");
    const auto differences = [](const Result& diff) {
        EXPECT_EQ(diff.code, 0) << diff.errors;
        return diff.output.substr(diff.output.find('\n', diff.output.find("second:")));
    };
    const std::string folders = differences(Post({"diff", "unit-1", "unit-2"}));
    EXPECT_EQ(differences(PostFrom("unit-1.tar.gz", {"diff", "-", "unit-2.tar.gz"})), folders);
    EXPECT_EQ(differences(Post({"diff", "both.zip", "both.zip", "--device", "unit-1", "--device", "unit-2"})),
              folders);
    EXPECT_EQ(Post({"diff", "unit-1", "both.zip"}).code, 2);
    EXPECT_EQ(Post({"diff", "unit-1", "unit-3"}).code, 2);
    EXPECT_EQ(PostFrom("unit-1.tar.gz", {"diff", "-", "-"}).code, 2);
}

TEST_F(Input, ReadsWhatHostileArchivesHoldAndWritesNothing) {
    std::filesystem::create_directory("here");
    std::filesystem::current_path("here");
    Packed("hostile.tar", ARCHIVE_FORMAT_TAR_PAX_INTERCHANGE, ARCHIVE_FILTER_NONE)
        .Add("/tmp/../../up.log", LogLines(0, 1))
        .Add("../../device.log", LogLines(1, 1))
        .Add("../../device.log", LogLines(2, 2))
        .Link("passwd", "/etc/passwd")
        .Link("hard", "/etc/passwd", true)
        .Special("fifo", AE_IFIFO)
        .Special("disk", AE_IFBLK)
        .Add("..", LogLines(8, 1))
        .Add("tail/\xff\xfe.log", LogLines(9, 1));
    Packed("secret.zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE, "zip:encryption=zipcrypt")
        .Add("device.log", LogLines(0, 1));
    // A device's names may hold backslashes, which divide nothing.
    Packed("device.zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE)
        .Add("\\device.log", LogLines(3, 1))
        .Add("device.log", LogLines(4, 1))
        .Add("triage\\device.log", LogLines(5, 1));
    const Json named = Post({"show", "device.zip", "--json"}).Parsed();
    std::set<std::string> names;
    for (const Json& event : named["events"]) {
        names.insert(event["file"]);
    }
    EXPECT_EQ(names, (std::set<std::string>{R"(\device.log)", "device.log", R"(triage\device.log)"}))
        << named;
    EXPECT_TRUE(named["findings"]["damage"].empty()) << named["findings"];
    const std::vector<std::string> before = Listing("..");
    const Result hostile = Post({"log", "hostile.tar"});
    EXPECT_EQ(hostile.code, 1) << hostile.errors;
    EXPECT_EQ(Sheets(hostile), 4U) << hostile.output;
    for (const char* words : {"2 links", "special file", "leads out of the folder", "more than once"}) {
        EXPECT_TRUE(Says(hostile, words)) << words << hostile.errors;
    }
    EXPECT_EQ(hostile.output.find("root:"), std::string::npos);
    const Result secret = Post({"log", "secret.zip", "--json"});
    EXPECT_EQ(secret.code, 2);
    EXPECT_TRUE(secret.Finds("archive-encrypted")) << secret.output;
    EXPECT_EQ(Post({"report", "hostile.tar", "-o", "page.html"}).code, 1);
    EXPECT_EQ(Listing(".."), before);
    EXPECT_EQ(Listing("."), (std::vector<std::string>{"device.zip", "hostile.tar", "page-hostile.tar.html",
                                                      "page-tail.html", "page-tmp.html", "secret.zip"}));
    std::filesystem::current_path("..");
}

TEST_F(Input, ReadsCutAndDamagedArchivesAsFarAsTheyGo) {
    for (const Format& format : kFormats) {
        const std::string path = std::string("whole.") + format.name;
        {
            Packed packed(path, format.format, format.filter);
            for (int i = 0; i < 8; ++i) {
                packed.Add("device-" + std::to_string(i) + ".log", LogLines(i * 100, 100));
            }
        }
        const std::string whole = ReadFile(path);
        std::size_t most = 0;
        for (const std::size_t eighth : {1, 4, 7}) {
            WriteFile("cut", whole.substr(0, whole.size() * eighth / 8));
            const Result cut = Post({"log", "cut", "--json"});
            EXPECT_NE(cut.code, 0) << path << eighth;
            EXPECT_TRUE(cut.Finds("archive-damaged")) << path << cut.errors;
            const std::size_t lines = cut.code == 1 ? cut.Parsed()["events"].size() : 0;
            EXPECT_GE(lines, most) << path << eighth;
            most = lines;
        }
        // Blocks of xz and bzip2 can only be unpacked whole.
        const bool inBlocks = format.filter == ARCHIVE_FILTER_XZ || format.filter == ARCHIVE_FILTER_BZIP2 ||
                              format.filter == ARCHIVE_FILTER_ZSTD;
        EXPECT_GE(most, inBlocks ? 0U : 600U) << path;
        std::string noise = whole;
        for (std::size_t i = 20; i < noise.size(); i += 1 + noise.size() / 50) {
            noise[i] = static_cast<char>(noise[i] ^ 0x55);
        }
        WriteFile("noise", noise);
        EXPECT_LE(Post({"log", "noise"}).code, 2) << path;
        WriteFile("noise", whole.substr(0, 10) + std::string(500, '\xee'));
        EXPECT_EQ(Post({"log", "noise"}).code, 2) << path;
    }
    Compress("device.log.gz", ARCHIVE_FILTER_GZIP, LogLines(0, 1000));
    const std::string log = ReadFile("device.log.gz");
    WriteFile("device.log.gz", log.substr(0, log.size() / 2));
    const Result half = Post({"log", "device.log.gz"});
    EXPECT_EQ(half.code, 1);
    EXPECT_GT(Sheets(half), 300U);
}

TEST_F(Input, StopsAtEveryLimit) {
    {
        Packed packed("unit.tar.gz", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_GZIP);
        for (int i = 0; i < 9; ++i) {
            packed.Add("device" + std::to_string(i) + ".log", LogLines(i * 100, 100));
        }
    }
    const std::vector<std::pair<std::vector<std::string>, std::size_t>> limits{
        {{"--max-unpacked", "12000"}, 212}, {{"--max-members", "3"}, 300}, {{"--max-unpacked", "1G"}, 900}};
    for (const auto& [limit, sheets] : limits) {
        for (const char* input : {"unit.tar.gz", "-"}) {
            const Result result = PostFrom("unit.tar.gz", {"log", input, limit[0], limit[1]});
            EXPECT_EQ(result.code, sheets < 900 ? 1 : 0) << limit[0] << result.errors;
            EXPECT_NEAR(static_cast<double>(Sheets(result)), static_cast<double>(sheets), 15) << limit[0];
            EXPECT_EQ(Says(result, limit[0]), sheets < 900) << result.errors;
            const Result summary = PostFrom("unit.tar.gz", {"summary", input, limit[0], limit[1]});
            EXPECT_EQ(summary.output.find(limit[0]) != std::string::npos, sheets < 900) << summary.output;
        }
    }
    WriteFile("long.log", LogLines(0, 1) + std::string(3 << 20, 'x') + "\n" + LogLines(1, 1));
    const Result line = Post({"log", "long.log", "--json"});
    EXPECT_EQ(line.code, 1);
    EXPECT_TRUE(line.Finds("archive-limit")) << line.errors;
    EXPECT_LT(line.output.size(), (1U << 20) + 20000U);
    EXPECT_NE(line.output.find("sheet 1"), std::string::npos);
    EXPECT_EQ(Post({"log", "long.log", "--max-line", "4M"}).code, 0);
    EXPECT_EQ(Post({"log", "long.log", "--max-line", "soon"}).code, 2);
}

// A bomb is noticed once it has more than 256 MiB, and what follows in a zip archive is still read.
TEST_F(Input, LeavesBombsAlone) {
    {
        Packed packed("bomb.zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE);
        packed.Add("bomb", std::string(260 << 20, '\0')).Add("device.log", LogLines(0, 3));
    }
    const Result bomb = Post({"log", "bomb.zip"});
    EXPECT_EQ(bomb.code, 1);
    EXPECT_TRUE(Says(bomb, "--max-ratio")) << bomb.errors;
    EXPECT_EQ(Sheets(bomb), 3U);
    EXPECT_EQ(Post({"log", "bomb.zip", "--max-ratio", "2000"}).code, 0);
}

// What does not fit into memory goes to TMPDIR, and leaves nothing there.
TEST_F(Input, SpillsWhatIsLargeToNamelessFiles) {
    std::filesystem::create_directory("tmp");
    std::string lines;
    for (int i = 0; i < 600; ++i) {
        lines += LogLines(i, 1) + std::string(60'000, 'x') + "\n";
    }
    ASSERT_GT(lines.size(), 32U << 20);
    Compress("device.log.gz", ARCHIVE_FILTER_GZIP, lines);
    ::setenv("TMPDIR", "tmp", 1);
    const Result large = Post({"log", "device.log.gz", "--text", "sheet 599"});
    EXPECT_EQ(Sheets(large), 1U) << large.errors;
    EXPECT_TRUE(Listing("tmp").empty());
    // A folder that is not there is no reason to give up.
    ::setenv("TMPDIR", "gone", 1);
    EXPECT_EQ(Sheets(Post({"log", "device.log.gz", "--text", "sheet 599"})), 1U);
    ::unsetenv("TMPDIR");
}

namespace {

/// What a device does: two processes one after the other; the second one still runs when its files are
/// collected.
void WriteAsADevice(const std::function<void()>& whileItRuns) {
    TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
    SysTraceConfigure();
    TRACE_RING_HANDLE panel = nullptr;
    GetTraceRingBuffer(10, &panel);
    for (unsigned i = 0; i < 3; ++i) {
        NimaTrace("Feeder").WriteWarnV("sheet %u", i);
        WriteEventToRingBuffer(panel, 0, 0x51, i, 2, 3, 4);
        RTTrace_1(SYSTRACE_ID(9, 0, 3), i);
    }
    TraceServices::ShutdownTrace(true);
    whileItRuns();
}

nlohmann::ordered_json Manifest() {
    return {{"manifest", 1},
            {"clocks",
             {{"wall_ns", 1'795'500'000'000'000'000},
              {"monotonic_ns", 7'000'000'001},
              {"counter", 8},
              {"uptime_ns", 7'000'000'001},
              {"read_within_ns", 100}}},
            {"time_zone", {{"name", "CET"}, {"utc_offset_seconds", 3600}}},
            {"files", {{{"name", "device.log"}, {"bytes", 100}, {"modified_ns", 1}, {"problem", nullptr}}}}};
}

} // namespace

TEST_F(Input, KnowsBootsAndTimesOfACollectedDevice) {
    std::filesystem::create_directory("device");
    std::filesystem::current_path("device");
    UnhurriedClocks clocks;
    InGoodChild([&] {
        clocks.Begin();
        WriteAsADevice([] {});
    });
    InGoodChild([&] {
        clocks.Begin();
        WriteAsADevice([] {
            const Result collected =
                Call("nima-ctl", NimaCtl::RunProgram, {"collect", ".", "-o", "../unit.tar.gz"});
            EXPECT_EQ(collected.code, 0) << collected.errors;
            std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
        });
    });
    std::filesystem::current_path("..");
    const Result log = Post({"log", "unit.tar.gz", "--json"});
    ASSERT_EQ(log.code, 0) << log.errors;
    const Json parsed = log.Parsed();
    ASSERT_EQ(parsed["processes"].size(), 2U);
    EXPECT_EQ(parsed["processes"][0]["boot"], 1);
    EXPECT_EQ(parsed["processes"][1]["boot"], 1);
    EXPECT_NE(parsed["findings"].dump().find("of the boot in which the files were collected"),
              std::string::npos);
    EXPECT_GE(parsed["events"].size(), 6U);
    for (const Json& line : parsed["events"]) {
        // Of the log's first process no other opening tells that nothing older stands in it.
        const bool isFirst = line["process"] == 1;
        EXPECT_EQ(line["later_by_seconds"] == "unbounded", isFirst) << line;
        EXPECT_EQ(line.contains("likely_later_by_seconds"), isFirst) << line;
    }
    ASSERT_EQ(Post({"timeline", "unit.tar.gz", "-o", "out.json"}).code, 0);
    const Json timeline = Json::parse(ReadFile("out.json"));
    std::map<std::string, int> ofBoot;
    for (const Json& event : timeline["traceEvents"]) {
        if (event.contains("args") && event["args"].contains("boot") && event["ph"] == "i") {
            ofBoot[event["args"]["boot"].dump()] += CountOf(event.dump(), "sheet ") > 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(ofBoot["1"], 6);
    EXPECT_NE(timeline["otherData"]["clock"].dump().find("The files were collected at"), std::string::npos);
    EXPECT_NE(timeline["otherData"]["clock"].dump().find("moment at which the files were collected"),
              std::string::npos);
}

TEST_F(Input, UsesADamagedOrContradictedManifestAsFarAsItHolds) {
    const std::string good = Manifest().dump();
    const auto codes = [&](const std::string& manifest, const std::string& log) {
        WriteFile("unit/manifest.json", manifest);
        WriteFile("unit/device.log", log);
        const Result result = Post({"timeline", "unit", "-o", "out.json", "--json"});
        std::string all = std::to_string(result.code);
        const Json parsed = result.Parsed();
        for (const Json& finding : parsed["findings"]["damage"]) {
            all += " " + finding["code"].get<std::string>();
        }
        return all;
    };
    std::filesystem::create_directory("unit");
    const std::string log = LogLines(0, 1) + std::string(100 - LogLines(0, 1).size(), 'x');
    const std::string collected = "The files were collected at 2026-11-24 ";
    EXPECT_EQ(codes(good, log), "0");
    EXPECT_NE(ReadFile("out.json").find(collected), std::string::npos);
    EXPECT_EQ(codes(good.substr(0, good.size() - 10), log), "1 manifest-damaged");
    EXPECT_NE(ReadFile("out.json").find(collected), std::string::npos);
    EXPECT_EQ(codes(good, log + "more"), "1 manifest-contradicted");
    nlohmann::ordered_json other = Manifest();
    // An archive is a device of its own, and the size of a compressed file is not that of what it holds.
    other["files"].push_back({{"name", "earlier.tar.gz"}, {"bytes", 5}});
    other["files"].push_back({{"name", "rotated.gz"}, {"bytes", 5}});
    WriteFile("unit/rotated", "what a device has compressed");
    ASSERT_EQ(std::system("gzip unit/rotated"), 0);
    EXPECT_EQ(codes(other.dump(), log), "0");
    other["files"].push_back({{"name", "gone.txt"}, {"bytes", 5}});
    EXPECT_EQ(codes(other.dump(), log), "1 manifest-contradicted");
    std::filesystem::remove("unit/rotated.gz");
    other = Manifest();
    other["manifest"] = 2;
    EXPECT_EQ(codes(other.dump(), log), "1 unknown-version");
    EXPECT_EQ(ReadFile("out.json").find(collected), std::string::npos);
    other = Manifest();
    other["clocks"]["counter"] = 9;
    EXPECT_EQ(codes(other.dump(), log), "1 manifest-damaged");
    EXPECT_EQ(ReadFile("out.json").find(collected), std::string::npos);
    other = Manifest();
    other["files"] = "none";
    other["processes"] = {{{"process", 1}, {"modules", {{{"path", "/x"}, {"address", "here"}}}}}, 7};
    other["segments"] = {{"System Ring Buffers", {{"mapped_by", {-1, "x"}}}}};
    EXPECT_EQ(codes(other.dump(), log), "1 manifest-damaged");
    EXPECT_EQ(codes("{\"manifest\": " + std::string(50000, '['), log), "1 unknown-version");
}
