#include "vyn/platform/scoped_descriptor.h"

#include <unistd.h>

namespace vyn::platform {

bool ScopedDescriptor::CloseDescriptor(int descriptor) {
  // Not retried on EINTR: on Linux the descriptor is released either way,
  // and a second close could hit a descriptor another thread just opened.
  return descriptor < 0 || close(descriptor) == 0;
}

}  // namespace vyn::platform
