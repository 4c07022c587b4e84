/*
 * The capture of a working platform built without libpcap: it refuses to
 * start, so the platform's hooks never run.
 */
#include "capture_hooks.h"
#include "platform/log.h"

std::atomic<bool> plt::g_captureOn{false};

void plt::captureSent(int, const char*, const unsigned char*, std::size_t, int)
{
}

void plt::captureDelivered(capture::Kind, const char*, const std::string&, const unsigned char*, std::size_t)
{
}

void plt::captureDropped(const std::string&, const std::string&, const unsigned char*, std::size_t)
{
}

int PLT_CaptureStart(const std::string& path, unsigned long long)
{
    LOG_ExpError("platform", __func__, __LINE__, "capture %s: this build has no capture (libpcap)", path.c_str());
    return MAN_E_STATE;
}

void PLT_CaptureStop()
{
}

void PLT_CaptureConsoleLine(const std::string&)
{
}
