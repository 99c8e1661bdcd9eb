/* Prints how many microseconds it takes to load the named shared library with its dependencies. */

#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

static double Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
        return 2;
    }
    const double begin = Now();
    void* library = dlopen(argv[1], RTLD_NOW);
    const double end = Now();
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    printf("%.1f\n", end - begin);
    return 0;
}
