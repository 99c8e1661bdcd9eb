#pragma once

#include <vector>

#include <termios.h>

namespace NimaPost {

/// The terminal on standard input, which hands over each key at once and shows none of them. Ctrl-C and
/// Ctrl-Z stay signals. At the end the terminal is as it was.
class Keyboard {
  public:
    /// Keys that are no character.
    enum Special { kUp = 256, kDown, kEnd };

    Keyboard() { Take(); }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;
    ~Keyboard() { GiveBack(); }

    /// Whether standard input is a terminal.
    static bool Possible();

    void Take();
    void GiveBack();

    /// The keys that have been pressed, characters or special ones; `kEnd` once the terminal has gone. Does
    /// not wait.
    std::vector<int> Keys();

  private:
    bool taken_ = false;
    termios before_{};
};

} // namespace NimaPost
