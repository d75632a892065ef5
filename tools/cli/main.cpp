// onvif-cli: the library's operations from the command line.
#include "commands.h"

#include <onvifTypes/session/nonces.h>

#ifdef ONVIFTYPES_WITH_DIALOG
#include <QApplication>
#endif
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <QSslCertificate>

#include <memory>

#include <unistd.h>

namespace {

const char* const kUsage = R"(Commands:
  discover [--csv]              broadcast a WS-Discovery probe on every local network and list the
                                devices that answer within --timeout seconds (default 5), with
                                whether each accepted the credentials; --csv for spreadsheets
  info URL                      device information and type
  profiles URL [--all]          media profiles with their RTSP stream URIs, largest video first;
                                --all: every profile with its name, in the device's order
  snapshot URL [FILE]           the picture of the largest profile, byte for byte as the camera sent
                                it (default snapshot.jpg; - writes to standard output)
  ptz URL ACTION [ARGS]         move PAN TILT [ZOOM] [SECONDS] | stop | status | absolute PAN TILT [ZOOM] |
                                relative PAN TILT [ZOOM] | home | save-home | presets |
                                goto PRESET | set-preset NAME [TOKEN] | remove-preset PRESET
                                (on the first PTZ profile; --profile names one for ptz, snapshot
                                and profiles)
  events URL [SECONDS]          subscribe and print each event as it comes, with its topic, for a while
                                (default 10 s; Ctrl-C ends it early and unsubscribes); --topic filters;
                                with --json one object per line
  time URL                      the device's clock against ours (the offset every request corrects)
  imaging URL [ACTION]          image settings of the largest profile's video source (--profile names
                                another): show (default) | options | set NAME=VALUE... with NAME
                                brightness, contrast, saturation, sharpness, ircut, exposure,
                                exposure-time, gain, white-balance, cr-gain, cb-gain, focus-mode
                                (values outside the device's range are clamped; --strict refuses) |
                                focus move SPEED | focus absolute POS | focus relative DIST |
                                focus stop | focus status
  dialog URL                    the device information dialog, filled at once (needs a display)
  demo [DIR]                    the whole tour against a simulated camera on 127.0.0.1

URL is a device-service address such as http://192.168.0.10/onvif/device_service; a bare host
or host:port means http and /onvif/device_service. COMMAND --help shows one command.
Credentials: -u/-p, --password-file, or the environment variables ONVIF_USER and
ONVIF_PASSWORD; without a password and on a terminal, it is asked for (not echoed).
Exit codes: 0 done, 1 the device answered with a fault or unreadably, 2 bad arguments or URL,
3 device unreachable or silent, 4 user name or password refused.)";

// One command's lines of the usage text, with the options that apply to every command.
QString commandUsage(const QString& command)
{
    if (command.isEmpty())
        return QString();
    const QStringList lines = QString::fromUtf8(kUsage).split(QLatin1Char('\n'));
    QStringList own;
    for (int i = 0; i < lines.size(); ++i) {
        if (!lines[i].startsWith(QLatin1String("  ") + command + QLatin1Char(' ')))
            continue;
        own << lines[i];
        // Continuation lines are indented past the command column.
        while (i + 1 < lines.size() && lines[i + 1].startsWith(QLatin1String("                 ")))
            own << lines[++i];
    }
    if (own.isEmpty())
        return QString();
    return QStringLiteral("Usage: onvif-cli [options] %1 ...\n\n%2\n\n"
                          "Options for every command: -u/--user, -p/--password, --password-file, --json, "
                          "--timeout SECONDS, --verbose, --cacert FILE, --insecure.\n"
                          "URL may be a bare host or host:port (http and /onvif/device_service are assumed).")
        .arg(command, own.join(QLatin1Char('\n')));
}

std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv)
{
    // Only the dialog needs a GUI; everything else runs without a display.
#ifdef ONVIFTYPES_WITH_DIALOG
    for (int i = 1; i < argc; ++i) {
        if (qstrcmp(argv[i], "dialog") == 0)
            return std::make_unique<QApplication>(argc, argv);
    }
#endif
    return std::make_unique<QCoreApplication>(argc, argv);
}

int run();

} // namespace

int main(int argc, char* argv[])
{
    const auto app = makeApplication(argc, argv);
    const int code = run();
    // A script reading --json output gets an answer on failure too.
    if (code != Cli::Ok && QCoreApplication::arguments().contains(QStringLiteral("--json"))
        && !Cli::jsonPrinted())
        Cli::printJson({ { "error", Cli::lastError() }, { "exitCode", code } });
    return code;
}

namespace {

int run()
{
    QCoreApplication::setApplicationName(QStringLiteral("onvif-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ONVIFTYPES_VERSION));
    // Every nonce from the system's strong source: a camera with a replay cache would refuse
    // the nonces of an unseeded qrand() after a restart.
    Onvif::useStrongNonces();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Talks to ONVIF cameras through libOnvifTypes.\n\n") + kUsage);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption user({ "u", "user" }, "User name (default: $ONVIF_USER).", "name");
    const QCommandLineOption password(
        { "p", "password" }, "Password (default: $ONVIF_PASSWORD).", "password");
    const QCommandLineOption json("json", "Machine-readable output.");
    const QCommandLineOption timeout(
        "timeout", "Seconds to wait for each answer (default 10).", "seconds", "10");
    const QCommandLineOption verbose("verbose", "Print the library's log records on stderr.");
    const QCommandLineOption profile(
        "profile", "Media profile token for ptz, snapshot and profiles.", "token");
    const QCommandLineOption passwordFile("password-file",
        "Read the password from the first line of this file (keeps it out of the process list).", "file");
    const QCommandLineOption all("all", "profiles: every profile, in the device's order, with its name.");
    const QCommandLineOption cacert("cacert",
        "Trust only the certificates (PEM) in this file for https cameras, e.g. a camera's own.", "file");
    const QCommandLineOption insecure("insecure",
        "Do not verify an https camera's certificate (self-signed ones); the link is still encrypted.");
    const QCommandLineOption topic("topic",
        "events: only these topics, as the camera's filter understands them (e.g. tns1:RuleEngine//.).",
        "expression");
    const QCommandLineOption csv("csv", "discover: comma-separated values with a header line.");
    const QCommandLineOption media("media",
        "Media service for profiles, snapshot, ptz and imaging: auto (Media2 where the device offers it), "
        "1 or 2.",
        "service", "auto");
    const QCommandLineOption strict("strict", "imaging set: refuse values outside the device's range.");
    parser.addOptions({ user, password, passwordFile, json, csv, timeout, verbose, profile, all, cacert,
        insecure, topic, media, strict });
    parser.addPositionalArgument(
        "command", "discover, info, profiles, snapshot, ptz, imaging, events, time, dialog or demo.");
    parser.addPositionalArgument("arguments", "The command's arguments.", "[arguments...]");

    // A negative number (ptz move -0.5 0) is an argument, not an option: hidden from the
    // parser behind a marker that no option starts with.
    const QChar marker(0x1);
    QStringList arguments = QCoreApplication::arguments();
    static const QRegularExpression negativeNumber(QStringLiteral("^-[0-9.]"));
    for (int i = 1; i < arguments.size(); ++i) {
        if (arguments.at(i).contains(negativeNumber))
            arguments[i].prepend(marker);
    }
    if (!parser.parse(arguments)) {
        Cli::printError(parser.errorText());
        return Cli::BadArguments;
    }
    if (parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("help-all"))) {
        // "onvif-cli ptz --help": that command's usage, not the whole page.
        const QString command = parser.positionalArguments().value(0);
        const QString usage = commandUsage(command);
        if (usage.isEmpty())
            parser.showHelp(Cli::Ok);
        Cli::printLine(usage);
        return Cli::Ok;
    }
    if (parser.isSet(QStringLiteral("version")))
        parser.showVersion();

    Cli::Options options;
    options.user = parser.isSet(user) ? parser.value(user) : qEnvironmentVariable("ONVIF_USER");
    options.password
        = parser.isSet(password) ? parser.value(password) : qEnvironmentVariable("ONVIF_PASSWORD");
    if (parser.isSet(passwordFile)) {
        QFile file(parser.value(passwordFile));
        if (!file.open(QIODevice::ReadOnly)) {
            Cli::printError(QStringLiteral("cannot read the password file %1").arg(file.fileName()));
            return Cli::BadArguments;
        }
        options.password
            = QString::fromUtf8(file.readLine(4096)).remove(QLatin1Char('\r')).remove(QLatin1Char('\n'));
    } else if (options.password.isEmpty() && !options.user.isEmpty() && isatty(STDIN_FILENO)) {
        options.password = Cli::askPassword(options.user);
    }
    if (parser.isSet(cacert) || parser.isSet(insecure)) {
        options.tlsSet = true;
        options.tls = QSslConfiguration::defaultConfiguration();
        if (parser.isSet(insecure))
            options.tls.setPeerVerifyMode(QSslSocket::VerifyNone);
        if (parser.isSet(cacert)) {
            const QList<QSslCertificate> certificates = QSslCertificate::fromPath(parser.value(cacert));
            if (certificates.isEmpty()) {
                Cli::printError(
                    QStringLiteral("--cacert: no PEM certificate in %1").arg(parser.value(cacert)));
                return Cli::BadArguments;
            }
            options.tls.setCaCertificates(certificates);
        }
        // The dialog's manager is its own: it gets the settings as the process default.
        if (parser.positionalArguments().value(0) == QLatin1String("dialog"))
            QSslConfiguration::setDefaultConfiguration(options.tls);
    }
    options.json = parser.isSet(json);
    options.csv = parser.isSet(csv);
    if (options.csv && (options.json || parser.positionalArguments().value(0) != QLatin1String("discover"))) {
        Cli::printError(QStringLiteral("--csv applies to discover only, without --json"));
        return Cli::BadArguments;
    }
    options.verbose = parser.isSet(verbose);
    bool timeoutOk = false;
    const double seconds = parser.value(timeout).toDouble(&timeoutOk);
    if (!timeoutOk || seconds <= 0) {
        Cli::printError(QStringLiteral("--timeout takes a positive number of seconds"));
        return Cli::BadArguments;
    }
    options.timeoutMs = int(seconds * 1000);

    QStringList args = parser.positionalArguments();
    for (QString& argument : args) {
        if (argument.startsWith(marker))
            argument.remove(0, 1);
    }
    if (args.isEmpty()) {
        Cli::printError(QStringLiteral("a command is needed; see --help"));
        return Cli::BadArguments;
    }
    const QString command = args.first();
    Cli::LibraryLog log(options.verbose);

    if (command == QLatin1String("discover")) {
        if (args.size() > 1) {
            Cli::printError(QStringLiteral("discover takes no arguments; see --help"));
            return Cli::BadArguments;
        }
        return Cli::discover(options, parser.isSet(timeout) ? options.timeoutMs : 5000);
    }
    if (command == QLatin1String("demo")) {
        if (args.size() > 2) {
            Cli::printError(QStringLiteral("demo takes at most one argument, the folder for its files"));
            return Cli::BadArguments;
        }
        return Cli::demo(options, log, args.value(1, QStringLiteral(".")));
    }

    const QMap<QString, int> maxArgs { { "info", 2 }, { "profiles", 2 }, { "snapshot", 3 }, { "events", 3 },
        { "ptz", 7 }, { "dialog", 2 }, { "time", 2 }, { "imaging", 16 } };
    if (!maxArgs.contains(command)) {
        Cli::printError(QStringLiteral("unknown command '%1'; see --help").arg(command));
        return Cli::BadArguments;
    }
    if (args.size() < 2 || args.size() > maxArgs.value(command)) {
        Cli::printError(QStringLiteral("wrong number of arguments for '%1'; see --help").arg(command));
        return Cli::BadArguments;
    }
    Cli::Context context;
    context.options = options;
    context.log = &log;
    context.profile = parser.value(profile);
    context.allProfiles = parser.isSet(all);
    context.topic = parser.value(topic);
    const QString mediaChoice = parser.value(media);
    if (mediaChoice == QLatin1String("1"))
        context.media = Onvif::CameraOptions::MediaService::Media1;
    else if (mediaChoice == QLatin1String("2"))
        context.media = Onvif::CameraOptions::MediaService::Media2;
    else if (mediaChoice != QLatin1String("auto")) {
        Cli::printError(QStringLiteral("--media takes auto, 1 or 2"));
        return Cli::BadArguments;
    }
    context.strict = parser.isSet(strict);
    if (parser.isSet(topic) && command != QLatin1String("events")) {
        Cli::printError(QStringLiteral("--topic applies to events only"));
        return Cli::BadArguments;
    }
    if (context.allProfiles && (command != QLatin1String("profiles") || parser.isSet(profile))) {
        Cli::printError(QStringLiteral("--all applies to profiles only, without --profile"));
        return Cli::BadArguments;
    }
    if (parser.isSet(profile) && command != QLatin1String("ptz") && command != QLatin1String("snapshot")
        && command != QLatin1String("profiles") && command != QLatin1String("imaging")) {
        Cli::printError(QStringLiteral("--profile applies to ptz, snapshot, profiles and imaging only"));
        return Cli::BadArguments;
    }
    QString error;
    if (!Cli::parseDeviceUrl(args.at(1), &context.url, &error)) {
        Cli::printError(error);
        return Cli::BadArguments;
    }
    if (command == QLatin1String("info"))
        return Cli::info(context);
    if (command == QLatin1String("time"))
        return Cli::time(context);
    if (command == QLatin1String("profiles"))
        return Cli::profiles(context);
    if (command == QLatin1String("dialog")) {
#ifdef ONVIFTYPES_WITH_DIALOG
        return Cli::dialog(context);
#else
        Cli::printError(QStringLiteral("this onvif-cli was built without the dialog (headless library)"));
        return Cli::BadArguments;
#endif
    }
    if (command == QLatin1String("ptz"))
        return Cli::ptz(context, parser.value(profile), args.mid(2));
    if (command == QLatin1String("imaging"))
        return Cli::imaging(context, args.mid(2));
    if (command == QLatin1String("events")) {
        bool ok = true;
        const int seconds = args.size() > 2 ? args.at(2).toInt(&ok) : 10;
        if (!ok || seconds <= 0) {
            Cli::printError(QStringLiteral("events takes a positive number of seconds"));
            return Cli::BadArguments;
        }
        return Cli::events(context, seconds);
    }
    return Cli::snapshot(context, args.value(2, QStringLiteral("snapshot.jpg")));
}

} // namespace
