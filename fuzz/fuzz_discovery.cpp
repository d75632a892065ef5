// One WS-Discovery answer delivered to Discovery's datagram slot through a loopback
// socket pair. The answers name arbitrary addresses, so the whole process runs in a
// network namespace of its own where nothing but loopback exists.
#include "fuzzCommon.h"

#include <onvifTypes/discovery.h>

#include <QCoreApplication>
#include <QUdpSocket>

#include <boost/log/core.hpp>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Harness
{
    Discovery discovery { nullptr };
    QUdpSocket receiver;
    QUdpSocket sender;
};

Harness* harness = nullptr;

// Must run before any thread exists: a user namespace is only entered single-threaded.
bool enterOwnNetworkNamespace()
{
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request {};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = fd >= 0 && ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags |= IFF_UP;
    up = up && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    if (fd >= 0)
        close(fd);
    return up;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    if (!enterOwnNetworkNamespace()) {
        std::fprintf(stderr, "fuzz_discovery: cannot enter a network namespace with loopback up\n");
        std::abort();
    }
    // Every odd answer is logged; printing the records took most of the time.
    boost::log::core::get()->set_logging_enabled(false);
    new QCoreApplication(*argc, *argv);
    harness = new Harness;
    if (!harness->receiver.bind(QHostAddress(QHostAddress::LocalHost), 0))
        std::abort();
    QObject::connect(
        &harness->receiver, &QUdpSocket::readyRead, &harness->discovery, &Discovery::readPendingDatagrams);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 65507)
        return 0;
    harness->sender.writeDatagram(reinterpret_cast<const char*>(data), qint64(size), QHostAddress::LocalHost,
        harness->receiver.localPort());
    harness->receiver.waitForReadyRead(1000);
    QCoreApplication::processEvents();
    // A new search drops the records and the device requests of this answer.
    harness->discovery.search(QString(), QString());
    QCoreApplication::processEvents();
    return 0;
}
