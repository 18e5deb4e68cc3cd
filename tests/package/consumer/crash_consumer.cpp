// Crashes on purpose: the installed library must find its installed helper
// programs and leave a minidump in Dumps/ below the current directory. Ends
// with 2 or 3 only when the crash did not happen.
#include <vyn/vyn.h>

int main() {
  GetVYNMemoryDump().Initialize("package");
  return GetVYNMemoryDump().ProvokeCrash() == VYN_STATUS_NOT_INITIALIZED ? 2 : 3;
}
