// Never run: cross-compiled, so that its symbols are read on a machine of another kind.

volatile int g_Sum = 0;

[[gnu::always_inline]] inline void Add(int value) {
    g_Sum = g_Sum + value; // add
}

extern "C" [[gnu::noinline, gnu::target("thumb")]] void InThumb(int value) { // thumb begins
    Add(value); // thumb
}

extern "C" [[gnu::noinline, gnu::target("arm")]] void InArm(int value) { // arm
    g_Sum = g_Sum + value * 3;
}

namespace {
[[gnu::noinline, gnu::target("thumb")]] void Hidden(int value) { // hidden
    g_Sum = g_Sum - value;
}
} // namespace

extern "C" [[gnu::noinline]] void Outer(int value) {
    Hidden(value);
    InThumb(value);
    InArm(value);
}
