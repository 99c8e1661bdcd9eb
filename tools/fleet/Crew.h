#pragma once

#include "tools/fleet/OrderedResults.h"

#include <cstddef>
#include <functional>
#include <system_error>
#include <thread>
#include <vector>

namespace NimaPost {

/// Threads that work on pieces for as long as it lives. `work` puts a piece's results.
template <class Result>
class Crew {
  public:
    Crew(unsigned threads, OrderedResults<Result>& results, const std::function<void(std::size_t)>& work)
        : results_(results) {
        try {
            for (unsigned i = 0; i < threads; ++i) {
                threads_.emplace_back([this, work] { Work(work); });
            }
        } catch (const std::system_error&) {
            // Where the system allows no more, those that there are do.
            if (threads_.empty()) {
                throw;
            }
        }
    }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;
    ~Crew() {
        results_.Stop();
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

  private:
    void Work(const std::function<void(std::size_t)>& work) {
        while (const auto piece = results_.TakePiece()) {
            work(*piece);
            results_.Finish(*piece);
        }
    }

    OrderedResults<Result>& results_;
    std::vector<std::thread> threads_;
};

} // namespace NimaPost
