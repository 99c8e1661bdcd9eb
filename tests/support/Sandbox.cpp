#include "tests/support/Sandbox.h"

#include <algorithm>
#include <barrier>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Nima::Testing {

namespace fs = std::filesystem;

void Sandbox::SetUp() {
    char name[] = "/tmp/nimaXXXXXX";
    directory_ = ::mkdtemp(name);
    fs::current_path(directory_);
}

void Sandbox::TearDown() {
    fs::current_path("/");
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

bool Exists(const std::string& path) {
    return fs::exists(path);
}

std::vector<std::string> Listing(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::size_t CountOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

std::uint32_t WordAt(const std::string& bytes, std::size_t offset) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + offset, sizeof(word));
    return word;
}

std::string LogTexts(const std::string& path) {
    const std::string log = ReadFile(path);
    return std::regex_replace(log.substr(log.find('\n') + 1), std::regex("-?[0-9]+ <0x[0-9a-f]{8}:000> "),
                              "");
}

std::string CapturedOutput(const std::function<void()>& action) {
    char name[] = "/tmp/nimaoutXXXXXX";
    const int file = ::mkstemp(name);
    std::fflush(stdout);
    const int saved = ::dup(STDOUT_FILENO);
    ::dup2(file, STDOUT_FILENO);
    action();
    std::fflush(stdout);
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    ::close(file);
    std::string output = ReadFile(name);
    ::unlink(name);
    return output;
}

int InChild(const std::function<void()>& action) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        action();
        std::exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
}

void InGoodChild(const std::function<void()>& action) {
    const int status = InChild(action);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    ASSERT_EQ(WEXITSTATUS(status), 0);
}

Child::Child(const std::function<void()>& action) {
    std::fflush(nullptr);
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        action();
        std::fflush(nullptr);
        ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
}

Child::Child(const std::function<void(const std::function<void()>& underWay)>& action) {
    int ready[2];
    EXPECT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    std::fflush(nullptr);
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        action([&ready] { [[maybe_unused]] const auto count = ::write(ready[1], "x", 1); });
        ::_exit(1);
    }
    char byte = 0;
    ::close(ready[1]);
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
}

Child::~Child() {
    EndBy(SIGKILL);
}

void Child::Signal(int number) const {
    ::kill(process_, number);
}

int Child::EndBy(int signal) {
    int status = -1;
    if (process_ > 0) {
        Signal(signal);
        ::waitpid(process_, &status, 0);
        process_ = -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void KilledMidway(const std::function<void(const std::function<void()>& underWay)>& action) {
    const Child killed(action);
}

Threads StartTogether(int count, const std::function<void(int number)>& action) {
    const auto together = std::make_shared<std::barrier<>>(count);
    Threads threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([=] {
            together->arrive_and_wait();
            action(number);
        });
    }
    return threads;
}

void WaitUntil(const std::function<bool()>& holds) {
    while (!holds()) {
        ::usleep(1000);
    }
}

TinyDisk::TinyDisk(const std::string& path, int kilobytes) : path_(path) {
    fs::create_directory(path);
    const std::string options = "size=" + std::to_string(kilobytes) + "k";
    mounted_ = ::mount("tmpfs", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

TinyDisk::~TinyDisk() {
    if (mounted_) {
        ::umount2(path_.c_str(), MNT_DETACH);
    }
}

void TinyDisk::Fill() const {
    const int file = ::open((path_ + "/filler").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    for (std::size_t piece = 4096; piece > 0; piece /= 2) {
        const std::string zeros(piece, '\0');
        while (::write(file, zeros.data(), piece) > 0) {
        }
    }
    ::close(file);
}

} // namespace Nima::Testing
