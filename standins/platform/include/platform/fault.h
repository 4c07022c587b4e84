/*
 * Stand-in extra, not part of the firmware: the platform calls that the
 * recording platform can make fail on demand.
 */
#ifndef PLATFORM_FAULT_H
#define PLATFORM_FAULT_H

enum class PltFault { Create, Assign, TaskCreate, Register };

#endif
