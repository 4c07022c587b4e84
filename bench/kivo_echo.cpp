/*
 * kivo_echo: the peer of the raw round-trip floor. It binds a Unix
 * datagram socket and answers every datagram with datagrams of the given
 * sizes to its sender, as the daemon answers a search with its replies.
 * One thread, no parsing: what is left is the operating system's share of
 * a search. Ends on SIGTERM, SIGINT, or after --max-seconds.
 *
 *   kivo_echo SOCKET_PATH [--max-seconds N] SIZE...
 */
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: kivo_echo SOCKET_PATH [--max-seconds N] SIZE...\n");
        return 2;
    }
    const std::string path = argv[1];
    unsigned int maxSeconds = 600;
    std::vector<std::size_t> sizes;
    for (int i = 2; i < argc; i++) {
        if (std::strcmp(argv[i], "--max-seconds") == 0 && i + 1 < argc)
            maxSeconds = static_cast<unsigned int>(std::strtoul(argv[++i], nullptr, 10));
        else
            sizes.push_back(std::strtoul(argv[i], nullptr, 10));
    }
    std::size_t largest = 0;
    for (std::size_t s : sizes)
        largest = s > largest ? s : largest;
    if (sizes.empty() || largest == 0 || largest > 65536) {
        std::fprintf(stderr, "kivo_echo: reply sizes must lie in 1..65536\n");
        return 2;
    }

    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path) {
        std::fprintf(stderr, "kivo_echo: socket path too long\n");
        return 2;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ::unlink(path.c_str());
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        std::fprintf(stderr, "kivo_echo: cannot bind %s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    /* A driver that dies must not leave this running. */
    ::alarm(maxSeconds);

    std::vector<char> in(65537);
    std::vector<char> out(largest, 'x');
    for (;;) {
        sockaddr_un from{};
        socklen_t fromLength = sizeof from;
        const ssize_t n = ::recvfrom(fd, in.data(), in.size(), 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (std::size_t s : sizes)
            ::sendto(fd, out.data(), s, 0, reinterpret_cast<sockaddr*>(&from), fromLength);
    }
    ::close(fd);
    ::unlink(path.c_str());
    return 0;
}
