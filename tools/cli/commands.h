#ifndef ONVIFCLI_COMMANDS_H
#define ONVIFCLI_COMMANDS_H

#include "cliSupport.h"

#include <onvifTypes/onvifRequests.h>

#include <QStringList>

namespace Cli {

// What one invocation works with: its options, the library's log, and the device.
struct Context
{
    Options options;
    LibraryLog* log = nullptr;
    QUrl url;
    QString profile; // --profile: the one media profile a command works on; empty: its own choice
    bool allProfiles = false; // profiles --all: every profile, in the device's order

    // Turns a failed or unanswered call into a message and an exit code; a fault the
    // device sent is printed as "device fault ter:Code (Receiver): reason".
    int failure(const QString& what, bool timedOut, bool authFault,
        const Onvif::SoapFault& fault = Onvif::SoapFault()) const;
    // True (and a message) when the last answer to `requests` could not be read.
    bool unreadable(const QString& what, const Onvif::Requests& requests) const;
};

int info(const Context& context);
int profiles(const Context& context);
int snapshot(const Context& context, const QString& file);
// One PTZ action on a profile (the first PTZ-capable one unless named).
int ptz(const Context& context, const QString& profile, const QStringList& args);
// Subscribes to a pull point, prints events for the given time, then unsubscribes.
int events(const Context& context, int seconds);
// The library's device information dialog, queried at once; returns when it is closed.
int dialog(const Context& context);

// Probes every local network and lists the devices that answered within listenMs.
int discover(const Options& options, int listenMs);

// The whole tour against a simulated camera started on loopback.
int demo(const Options& options, LibraryLog& log, const QString& outputDir);

// Profiles with their stream URIs, largest first; false (and *exitCode) on failure.
bool loadProfiles(const Context& context, Onvif::Requests& requests, QVector<Onvif::OnvifProfileInfo>* result,
    QString* mediaUrl, int* exitCode);

QJsonObject toJson(const Onvif::DeviceInfo& info);
QJsonObject toJson(const Onvif::OnvifProfileInfo& profile);
void printDeviceInfo(const Onvif::DeviceInfo& info);
void printProfiles(const QVector<Onvif::OnvifProfileInfo>& profiles);

} // namespace Cli

#endif
