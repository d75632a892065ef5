#include "privateNetwork.h"

#include <discoveryResponder.h>

#include <net/if.h>
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
    return problem;
}
