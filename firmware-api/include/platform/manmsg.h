/*
 * Messages of the firmware's inter-task and inter-process messaging, and
 * its sending and timer service.
 *
 * A message is a byte string: the 32-bit primitive in the first four bytes,
 * most significant byte first, then the fields in the order they were
 * appended (docs/platform.md gives their layout).
 *
 * A task receives a message as an opaque "raw message" (the third argument
 * of its callback for event 0). Assign attaches a reader to it without
 * copying; the task releases the raw message with MAN_ExpPFree when done,
 * so the reader must not outlive it.
 *
 * The results of the adders and of the sends are not documented, so they
 * have none here. The platform's own state is private; its own code reaches
 * it as the friend Platform.
 */
#ifndef PLATFORM_MANMSG_H
#define PLATFORM_MANMSG_H

#include <cstddef>
#include <string>
#include <vector>

class CManMessage {
public:
    CManMessage();
    ~CManMessage();

    /* Starts a new outgoing message with the given primitive. `flags` is
     * passed through; `size` is the expected payload size, a reservation
     * hint. 0 on success. */
    int Create(unsigned int primitive, unsigned int flags, int size);

    /* Attaches the reader to a received raw message after checking that it
     * is well formed; 0 on success. */
    int Assign(void* raw);

    /* Append a field. */
    void addU32(unsigned int value);
    void addString(const std::string& value);

    /* Read the next field after the primitive. Reading past the end or a
     * field of another type yields 0 or "". */
    unsigned int getU32();
    std::string getString();

    /* Releases what Create reserved; the object can be created again. */
    void Delete();

    /* Prints the message (primitive and fields) to the debug terminal. */
    void Dump();

private:
    CManMessage(const CManMessage&) = delete;
    CManMessage& operator=(const CManMessage&) = delete;

    friend class Platform;
    std::vector<unsigned char> out_;   /* bytes of a created message */
    const unsigned char* data_ = nullptr;
    std::size_t len_ = 0;
    std::size_t pos_ = 0;              /* read position of an assigned message */
    bool created_ = false;
    bool readError_ = false;           /* a read failed since Assign */
};

/* Sending and timers; the one instance is the global cManIO. */
class CManIO {
public:
    /* Sends the message to the IPC address `destination` ("name@Local") of
     * any process, from the address `source`. The caller keeps and deletes
     * its message. */
    void SendIpc(CManMessage& msg, const char* source, const char* destination);

    /* Queues a copy of the message to the task with index `taskNo` of this
     * process; it arrives as an event-0 message. */
    void SendLocal(CManMessage& msg, int taskNo);

    /* Delivers a copy of the message to task `taskNo` after `time` timer
     * units. Timers cannot be cancelled. */
    void TimerLocal(CManMessage& msg, int taskNo, unsigned int time);
};

extern CManIO cManIO;

#endif
