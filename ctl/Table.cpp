#include "ctl/Verbs.h"

namespace NimaCtl {

// Each of these is defined in the file of its verb, and has a row below.
VerbAdder AddStatusVerb;
VerbAdder AddLevelVerb;
VerbAdder AddOnlyVerb;
VerbAdder AddResetVerb;
VerbAdder AddClearVerb;
VerbAdder AddDumpVerb;
VerbAdder AddRingsVerb;
VerbAdder AddMarkVerb;
VerbAdder AddRecordVerb;
VerbAdder AddRepairVerb;
VerbAdder AddCollectVerb;

namespace {

/// In the order of the help text.
constexpr VerbAdder* kVerbs[]{AddStatusVerb, AddLevelVerb,  AddOnlyVerb,   AddResetVerb,
                              AddClearVerb,  AddDumpVerb,   AddRingsVerb,  AddMarkVerb,
                              AddRecordVerb, AddRepairVerb, AddCollectVerb};

} // namespace

void SetUpProgram(CLI::App& app, Context& context, Run& run) {
    NimaPost::DescribeProgram(app, "nima-ctl", "Looks into a running device and steers its binary trace.",
                              NIMA_CTL_VERSION, "Exit status: 0 done, 1 done in part, 2 not done.");
    for (VerbAdder* add : kVerbs) {
        add(app, context, run);
    }
}

} // namespace NimaCtl
