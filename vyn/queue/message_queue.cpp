#include "vyn/queue/message_queue.h"

CVYNMessageQueue::CVYNMessageQueue() = default;

CVYNMessageQueue::~CVYNMessageQueue() = default;
