/*
 * The firmware's task framework.
 *
 * A task has a name, an index (its slot in TaskIdTbl) and a callback that
 * the platform calls on the task's own thread, one event at a time:
 *   event 0: a message; the third argument is the raw message, which the
 *            callback releases with MAN_ExpPFree;
 *   event 1: task control, primitive 1 is the start event;
 *   event 2: task event with a primitive.
 */
#ifndef PLATFORM_MANTASK_H
#define PLATFORM_MANTASK_H

/* Task ids by task index; 0 marks a free slot. */
extern int TaskIdTbl[];

/* Creates a task. `idSlot` receives the task's id; when it points into
 * TaskIdTbl, its position there is the task's index, by which SendLocal and
 * TimerLocal address it. `arg` is passed through. The task receives its
 * start event first. Result 0 on success. */
int MAN_ExpTCreate(char const* name, int* idSlot, int arg, void (*callback)(int event, unsigned int primitive, void* raw));

/* Releases a raw message that a task received. */
void MAN_ExpPFree(void* raw);

#endif
