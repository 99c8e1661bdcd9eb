/// nima-post: reads what the diagnostics library leaves behind, doc/nima-post.md.

#include "tools/Program.h"

int main(int argc, char** argv) {
    return NimaPost::RunProgram(argc, argv);
}
