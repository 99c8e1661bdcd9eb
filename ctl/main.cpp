/// nima-ctl: looks into a running device and steers its binary trace, doc/nima-ctl.md.

#include "ctl/Program.h"

int main(int argc, char** argv) {
    return NimaCtl::RunProgram(argc, argv);
}
