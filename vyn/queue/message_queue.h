// CVYNMessageQueue: messages handed between threads and to registered receiver queues.
#pragma once

#include "vyn/core/export.h"

class VYN_EXPORT CVYNMessageQueue {
 public:
  CVYNMessageQueue();
  virtual ~CVYNMessageQueue();
  CVYNMessageQueue(const CVYNMessageQueue&) = delete;
  CVYNMessageQueue& operator=(const CVYNMessageQueue&) = delete;
};

VYN_EXPORT CVYNMessageQueue& GetVYNMessageQueue();
