#ifndef ONVIFTYPES_BENCH_BARESOAP_H
#define ONVIFTYPES_BENCH_BARESOAP_H

#include <QString>

// What a client without the library does: one template fill of the whole request
// with a WS-Security digest made on the spot. The baselines of the benchmarks.
namespace Bench {

QString getProfilesBody();
QString getStreamUriBody(const QString& profileToken);
QString getDeviceInformationBody();
QString getPtzCapabilitiesBody();
QString getPresetsBody(const QString& profileToken);

// The complete SOAP request with a fresh nonce and creation time.
QString bareEnvelope(const QString& user, const QString& password, const QString& body);

// The text with the digest, nonce and creation time blanked, for comparing requests.
QString withoutSecrets(QString text);

} // namespace Bench

#endif // ONVIFTYPES_BENCH_BARESOAP_H
