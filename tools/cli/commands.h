#ifndef ONVIFCLI_COMMANDS_H
#define ONVIFCLI_COMMANDS_H

#include "cliSupport.h"

#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/session/camera.h>

#include <memory>

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
    QString topic; // events --topic: a concrete-set topic expression
    bool strict = false; // imaging set --strict: refuse values outside the device's range
    Onvif::CameraOptions::MediaService media = Onvif::CameraOptions::MediaService::Automatic; // --media

    // Turns a failed or unanswered call into a message and an exit code; a fault the
    // device sent is printed as "device fault ter:Code (Receiver): reason".
    int failure(const QString& what, bool timedOut, bool authFault,
        const Onvif::SoapFault& fault = Onvif::SoapFault()) const;
    // True (and a message) when the last answer to `requests` could not be read.
    bool unreadable(const QString& what, const Onvif::Requests& requests) const;

    // A session for the device: clock offset, HTTP Digest, the address policy, --timeout per
    // call, and the TLS and trace options.
    std::unique_ptr<Onvif::Camera> camera() const;
    // Waits for a session call; false (a message, and *exitCode) when it failed.
    template <typename T>
    bool wait(const Onvif::Camera& camera, const QFuture<T>& future, const QString& what, int* exitCode) const
    {
        // The session ends every call by itself; this bound only guards against a hang.
        const bool finished = await(future, 4 * options.timeoutMs + 5000, what);
        if (finished && !future.isCanceled())
            return true;
        *exitCode = sessionFailure(what, finished ? camera.lastResult() : Onvif::CameraResult());
        return false;
    }
    // The message and exit code of a failed session call.
    int sessionFailure(const QString& what, const Onvif::CameraResult& result) const;
    // The session's profiles; false (and *exitCode) on failure.
    bool loadProfiles(Onvif::Camera& camera, QVector<Onvif::CameraProfile>* profiles, int* exitCode) const;
};

// One profile per video encoder, largest picture first (the first of equal ones kept).
QVector<Onvif::CameraProfile> videoProfiles(const QVector<Onvif::CameraProfile>& all);
// Narrows the list to the profile named by --profile; false (and a message) when there is none.
bool pickProfile(const Context& context, const QString& what, QVector<Onvif::CameraProfile>* list);

int info(const Context& context);
int profiles(const Context& context);
int snapshot(const Context& context, const QString& file);
// One PTZ action on a profile (the first PTZ-capable one unless named).
int ptz(const Context& context, const QString& profile, const QStringList& args);
// Subscribes to a pull point, prints events for the given time, then unsubscribes.
int events(const Context& context, int seconds);
// The device's clock against ours.
int time(const Context& context);
// Image settings of a profile's video source: show, set NAME=VALUE..., focus ACTION.
int imaging(const Context& context, const QStringList& args);
// The library's device information dialog, queried at once; returns when it is closed.
int dialog(const Context& context);

// Probes every local network and lists the devices that answered within listenMs.
int discover(const Options& options, int listenMs);

// The whole tour against a simulated camera started on loopback.
int demo(const Options& options, LibraryLog& log, const QString& outputDir);

QJsonObject toJson(const Onvif::DeviceInfo& info);
QJsonObject toJson(const Onvif::CameraProfile& profile);
void printDeviceInfo(const Onvif::DeviceInfo& info);
void printProfiles(const QVector<Onvif::CameraProfile>& profiles);

} // namespace Cli

#endif
