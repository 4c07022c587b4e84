/*
 * The firmware's messages and its sending and timer service (declarations
 * only, see firmware-api/README.md). The primitive of a received message is
 * in the first four bytes of the raw message, most significant byte first.
 */
#ifndef FIRMWARE_PLATFORM_MANMSG_H
#define FIRMWARE_PLATFORM_MANMSG_H

#include <string>

class CManMessage {
public:
    CManMessage();
    ~CManMessage();

    int Create(unsigned int primitive, unsigned int flags, int size);
    int Assign(void* raw);
    void addU32(unsigned int value);
    void addString(const std::string& value);
    unsigned int getU32();
    std::string getString();
    void Delete();
    void Dump();

private:
    CManMessage(const CManMessage&);
    CManMessage& operator=(const CManMessage&);
};

class CManIO {
public:
    void SendIpc(CManMessage& msg, const char* source, const char* destination);
    void SendLocal(CManMessage& msg, int taskNo);
    void TimerLocal(CManMessage& msg, int taskNo, unsigned int time);
};

extern CManIO cManIO;

#endif
