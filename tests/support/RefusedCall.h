#pragma once

// From here on the system call fails with this error on the calling thread and in the processes it
// starts, as it would on a machine where that is wrong. There is no way back: call it on a thread
// of its own. False when the system does not allow it.
bool refuseCall(unsigned int number, unsigned int error);
