#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

#include <gtest/gtest.h>

namespace Nima::Testing {

/// Every test runs in a fresh working directory of its own, since logs and segments are files in the working
/// directory. It is removed afterwards.
class Sandbox : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    const std::string& directory() const { return directory_; }

  private:
    std::string directory_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
bool Exists(const std::string& path);
/// The names in a directory, sorted.
std::vector<std::string> Listing(const std::string& directory);
std::vector<std::string> Lines(const std::string& text);
std::size_t CountOf(const std::string& text, const std::string& part);
std::uint32_t WordAt(const std::string& bytes, std::size_t offset);
/// The lines of a log without their headers, and without its first one, the calibration line.
std::string LogTexts(const std::string& path);

/// What the action prints to standard output, down to the file descriptor.
std::string CapturedOutput(const std::function<void()>& action);

/// Runs the action in a child process, which then exits normally, destructors included. Returns the wait
/// status.
int InChild(const std::function<void()>& action);
/// The same, and asserts that the child ended with status 0.
void InGoodChild(const std::function<void()>& action);

/// A process beside the test, which is killed at the end if it still runs.
class Child {
  public:
    /// Runs the action, which need not return.
    explicit Child(const std::function<void()>& action);
    /// The same; the constructor returns once the action has called its argument.
    explicit Child(const std::function<void(const std::function<void()>& underWay)>& action);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    pid_t Process() const { return process_; }
    void Signal(int number) const;
    /// Sends a signal, or none, waits for the end and returns the exit status, or -1 if a signal ended it.
    int EndBy(int signal);

  private:
    pid_t process_ = -1;
};

/// Runs an endless action in a child process, and kills it with signal 9 some time after the action has
/// called its argument.
void KilledMidway(const std::function<void(const std::function<void()>& underWay)>& action);

using Threads = std::vector<std::jthread>; ///< joined when they go
/// So many threads that begin the action together, each with its number, from 0 on.
Threads StartTogether(int count, const std::function<void(int number)>& action);
void WaitUntil(const std::function<bool()>& holds);

/// Mounts a small tmpfs on a directory made for it and unmounts it at the end; `mounted()` is false if the
/// machine does not allow that.
class TinyDisk {
  public:
    TinyDisk(const std::string& path, int kilobytes);
    TinyDisk(const TinyDisk&) = delete;
    TinyDisk& operator=(const TinyDisk&) = delete;
    ~TinyDisk();
    bool mounted() const { return mounted_; }
    /// Uses up the remaining room.
    void Fill() const;

  private:
    std::string path_;
    bool mounted_;
};

} // namespace Nima::Testing
