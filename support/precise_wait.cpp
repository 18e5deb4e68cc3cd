#include "support/precise_wait.h"

#include <sys/prctl.h>

namespace vyn::support {

void UseFineTimerSlack() { prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); }

}  // namespace vyn::support
