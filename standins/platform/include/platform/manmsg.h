/*
 * Messages of the firmware's inter-task and inter-process messaging, as the
 * firmware declares them.
 *
 * A message is a byte string: the 32-bit primitive in the first four bytes,
 * most significant byte first, then the fields in the order they were
 * appended. docs/platform.md gives the exact layout of the fields.
 *
 * A task receives a message as an opaque "raw message" (the third argument of
 * its callback for event 0). CManMessage::Assign attaches a reader to it; the
 * task releases the raw message with MAN_ExpPFree when done. Assign does not
 * copy: the reader must not outlive the raw message.
 *
 * Result codes, size limit and wire tags of our platform are in
 * platform/standin.h; they are not the firmware's.
 */
#ifndef PLATFORM_MANMSG_H
#define PLATFORM_MANMSG_H

#include <cstddef>
#include <string>
#include <vector>

#include "platform/attrs.h"

class PLT_API CManMessage {
public:
    CManMessage();
    ~CManMessage();
    CManMessage(const CManMessage&) = delete;
    CManMessage& operator=(const CManMessage&) = delete;

    /* Starts a new outgoing message with the given primitive. `flags` is
     * passed through (0 everywhere in this firmware); `size` is the expected
     * payload size, a reservation hint. 0 on success. */
    int Create(unsigned int primitive, unsigned int flags, int size);

    /* Attaches the reader to a received raw message after checking that it
     * is well formed; 0 on success. */
    int Assign(void* raw);

    /* Append a field. */
    int addU32(unsigned int value);
    int addString(const std::string& value);

    /* Read the next field after the primitive. Reading past the end or a
     * field of another type yields 0 or "". */
    unsigned int getU32();
    std::string getString();

    /* Releases what Create reserved; the object can be created again. */
    void Delete();

    /* Prints the message (primitive and fields) to the debug terminal. */
    void Dump();

    /* ---- stand-in extras, not part of the firmware ---------------------
     * For our platform's own code, daemon and tests; the module uses none. */

    /* A read failed since Assign (past the end, or a field of another type). */
    bool readFailed() const { return readError_; }
    /* The message bytes (primitive first) of an assigned or created message. */
    const unsigned char* data() const { return data_; }
    std::size_t length() const { return len_; }

private:
    std::vector<unsigned char> out_;   /* bytes of a created message */
    const unsigned char* data_ = nullptr;
    std::size_t len_ = 0;
    std::size_t pos_ = 0;              /* read position of an assigned message */
    bool created_ = false;
    bool readError_ = false;
    bool grow(std::size_t n);
};

/* Sending and timers; the one instance is the global cManIO. */
class PLT_API CManIO {
public:
    /* Sends the message to the IPC address `destination` ("name@Local") of
     * any process. The datagram leaves from the address `source` when that
     * names a task of this process, otherwise from the process's first task
     * (docs/platform.md). The caller keeps and deletes its message. */
    int SendIpc(CManMessage& msg, const char* source, const char* destination);

    /* Queues a copy of the message to the task with index `taskNo` of this
     * process; it arrives as an event-0 message. */
    int SendLocal(CManMessage& msg, int taskNo);

    /* Delivers a copy of the message to task `taskNo` after `time` timer
     * units. Timers cannot be cancelled. */
    int TimerLocal(CManMessage& msg, int taskNo, unsigned int time);
};

extern PLT_API CManIO cManIO;

#endif
