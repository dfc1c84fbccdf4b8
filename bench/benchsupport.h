#pragma once

// What the benchmarks share: a clock, percentiles, plain sockets on loopback, and the floor every
// network figure stands beside, the loopback UDP echo round trip.
#include "core/messages.h"
#include "core/wire.h"

#include <QByteArray>
#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace linkhop::bench {

inline qint64 NowNs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return qint64(t.tv_sec) * 1000000000 + t.tv_nsec;
}

inline double ThreadCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Percentiles
{
    double median = 0;
    double p99 = 0;
    size_t count = 0;
};

inline Percentiles Summarise(std::vector<double> samples)
{
    Percentiles p;
    p.count = samples.size();
    if (samples.empty()) return p;
    std::sort(samples.begin(), samples.end());
    p.median = samples[samples.size() / 2];
    p.p99 = samples[std::min(samples.size() - 1, size_t(double(samples.size()) * 0.99))];
    return p;
}

inline sockaddr_in Address(quint32 ip, quint16 port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(ip);
    a.sin_port = htons(port);
    return a;
}

inline int OpenSocket(quint32 ip, bool blocking = false)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | (blocking ? 0 : SOCK_NONBLOCK) | SOCK_CLOEXEC, 0);
    const int buffer = 1 << 20;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    const sockaddr_in local = Address(ip, 0);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        std::perror("bind");
        std::exit(1);
    }
    return fd;
}

inline quint16 LocalPort(int fd)
{
    sockaddr_in a{};
    socklen_t length = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length);
    return ntohs(a.sin_port);
}

// The floor: a bare UDP echo over loopback. Both ends sleep until their datagram arrives, as the
// server and the players do.
inline Percentiles EchoFloor(quint32 serverIp, int rounds, quint32 clientIp = (127u << 24) | (77u << 16) | 1u)
{
    const int echo = OpenSocket(serverIp, true);
    const timeval wake{0, 100000};
    setsockopt(echo, SOL_SOCKET, SO_RCVTIMEO, &wake, sizeof wake);
    const quint16 echoPort = LocalPort(echo);
    std::atomic<bool> stop{false};
    std::thread echoer([&] {
        char buffer[2048];
        while (!stop.load()) {
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const ssize_t n =
                recvfrom(echo, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
            if (n >= 0) sendto(echo, buffer, size_t(n), 0, reinterpret_cast<sockaddr*>(&from), length);
        }
    });
    const int client = OpenSocket(clientIp);
    const sockaddr_in to = Address(serverIp, echoPort);
    const QByteArray message = ToWire(msg::Navigate(u"P0001", u"Some article title"));
    std::vector<double> samples;
    char buffer[2048];
    for (int i = 0; i < rounds; ++i) {
        const qint64 start = NowNs();
        sendto(client, message.constData(), size_t(message.size()), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to);
        pollfd wait{client, POLLIN, 0};
        if (poll(&wait, 1, 1000) == 1 && recv(client, buffer, sizeof buffer, 0) > 0)
            samples.push_back(double(NowNs() - start) / 1e6);
    }
    stop = true;
    echoer.join();
    close(echo);
    close(client);
    return Summarise(samples);
}

} // namespace linkhop::bench
