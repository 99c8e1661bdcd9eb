/// A plug-in whose thread is stopped only after the plug-in's tracer has been destroyed.

#include <atomic>
#include <thread>

#include <unistd.h>

#include <Diagnostics/NimaTrace.h>

namespace {

class Worker {
  public:
    Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker() {
        ::usleep(2000);
        stop_ = true;
        thread_.join();
    }
    void Start();

  private:
    std::atomic<bool> stop_{false};
    std::atomic<bool> started_{false};
    std::thread thread_;
};

Worker g_Worker;
Nima::Common::System::OS::Diagnostics::NimaTrace g_Trace("Plugin"); // destroyed first

void Worker::Start() {
    thread_ = std::thread([this] {
        while (!stop_) {
            g_Trace.WriteErrorV("at work.");
            started_ = true;
        }
    });
    while (!started_) {
        std::this_thread::yield();
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) void StartPlugin() {
    g_Worker.Start();
}
