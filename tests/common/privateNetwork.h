#ifndef ONVIFTYPES_TESTS_PRIVATENETWORK_H
#define ONVIFTYPES_TESTS_PRIVATENETWORK_H

#include <QString>

// Moves the process into a network namespace of its own with only loopback up, so
// that broadcasts (WS-Discovery) never reach the machine's real networks. Must run
// before any thread exists. Returns why that failed, or an empty text.
QString enterOwnNetworkNamespace();

#endif
