#include <Diagnostics/TraceServices.h>

void Report();

int main() {
    const int result = Nima::Common::System::OS::Diagnostics::TraceServices::ConfigureDefaultLog(
        L"guest.log", 1 << 20, 0, true);
    Report();
    return result;
}
