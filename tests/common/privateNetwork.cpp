#include "privateNetwork.h"

#include <discoveryResponder.h>

#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

QString enterOwnNetworkNamespace()
{
    // A user namespace is only entered single-threaded, hence before QCoreApplication.
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return QStringLiteral("cannot create a network namespace (%1)")
            .arg(QString::fromLocal8Bit(strerror(errno)));
    // Only loopback exists in it: a broadcast sent from 127.0.0.1 leaves through lo and
    // reaches the responders bound to the wildcard address.
    QString problem;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request {};
    strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    if (fd < 0 || ioctl(fd, SIOCGIFFLAGS, &request) != 0
        || (request.ifr_flags |= IFF_UP, ioctl(fd, SIOCSIFFLAGS, &request) != 0))
        problem = QStringLiteral("cannot bring up lo in the new namespace");
    if (fd >= 0)
        close(fd);
    if (problem.isEmpty() && !CameraSim::DiscoveryResponder::inPrivateNetworkNamespace())
        problem = QStringLiteral("the new namespace cannot be told apart from the host's");
    if (problem.isEmpty()) {
        struct if_nameindex* names = if_nameindex();
        for (struct if_nameindex* n = names; n && n->if_index != 0; ++n) {
            if (strcmp(n->if_name, "lo") != 0)
                problem = QStringLiteral("the namespace has an interface besides lo: %1")
                              .arg(QLatin1String(n->if_name));
        }
        if_freenameindex(names);
    }
    // Multicast over lo, so that a plain socket can probe 239.255.255.250; only ever in this
    // namespace, where lo is the only interface.
    if (problem.isEmpty()) {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq flags {};
        strncpy(flags.ifr_name, "lo", IFNAMSIZ - 1);
        rtentry route {};
        auto* dst = reinterpret_cast<sockaddr_in*>(&route.rt_dst);
        auto* mask = reinterpret_cast<sockaddr_in*>(&route.rt_genmask);
        dst->sin_family = mask->sin_family = AF_INET;
        dst->sin_addr.s_addr = htonl(0xE0000000); // 224.0.0.0/4
        mask->sin_addr.s_addr = htonl(0xF0000000);
        route.rt_flags = RTF_UP;
        char device[] = "lo";
        route.rt_dev = device;
        if (fd < 0 || ioctl(fd, SIOCGIFFLAGS, &flags) != 0
            || (flags.ifr_flags |= IFF_MULTICAST, ioctl(fd, SIOCSIFFLAGS, &flags) != 0)
            || (ioctl(fd, SIOCADDRT, &route) != 0 && errno != EEXIST))
            problem = QStringLiteral("cannot route multicast over lo (%1)")
                          .arg(QString::fromLocal8Bit(strerror(errno)));
        if (fd >= 0)
            close(fd);
    }
    return problem;
}
