#include "platform/Modules.h"

int _get_exception_code_helper() {
    return 0;
}

int _create_toolhelp32_snapshot_helper(int /*kind*/, int /*processId*/) {
    return -1;
}

int _module32_first_helper(int /*snapshot*/, int /*entry*/) {
    return 0;
}

int _module32_next_helper(int /*snapshot*/, int /*entry*/) {
    return 0;
}

int _close_snapshot_helper(int /*snapshot*/) {
    return 0;
}
