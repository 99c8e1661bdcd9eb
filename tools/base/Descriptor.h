#pragma once

#include <utility>

#include <unistd.h>

namespace NimaPost {

/// Owns a file descriptor, or none, and closes it at its end.
class Descriptor {
  public:
    Descriptor() = default;
    /// Takes ownership of the descriptor; negative for none.
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (number_ >= 0) {
            close(number_);
        }
    }

    explicit operator bool() const { return number_ >= 0; }
    int Number() const { return number_; }
    /// Gives up ownership of the descriptor.
    int Release() { return std::exchange(number_, -1); }

  private:
    int number_ = -1;
};

} // namespace NimaPost
