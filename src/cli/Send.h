// Sending an inventory to the server a fleet runs: the OCS Inventory XML, compressed,
// to an OCS Inventory NG server, or the GLPI agent's JSON to a GLPI server. One POST,
// never repeated and never redirected, over TLS when the address says https.
#ifndef INVSCAN_CLI_SEND_H
#define INVSCAN_CLI_SEND_H

#include <cstddef>
#include <string>

// Exit statuses of a send, one per way it fails.
const int SEND_OK = 0;
const int SEND_USAGE = 2;         // an address or format that cannot be used
const int SEND_UNREACHABLE = 20;  // no connection: name, route, or nobody listening
const int SEND_TIMEOUT = 21;      // no answer within the time allowed
const int SEND_REFUSED = 22;      // the server answered with an error (or a redirect)
const int SEND_NOT_PROTOCOL = 23; // the answer is not the server's protocol, or too large
const int SEND_TLS = 24;          // the certificate does not verify, or TLS failed
const int SEND_LOCAL = 25;        // something on this side: memory, compression, a file

struct SendOptions {
    std::string caCert;              // a private CA's certificates (PEM); else the system's
    long connectTimeoutMs = 10000;   // to have a connection
    long totalTimeoutMs = 60000;     // for the whole exchange
    std::size_t maxAnswer = 1 << 20; // bytes of answer kept; more aborts the transfer
    std::string userAgent = "invscan";
};

// Which body an address takes: "ocs" or "glpi" when `format` says so, else "ocs" for
// an address whose path ends in /ocsinventory (where the OCS server listens) and
// "glpi" for any other.
std::string sendFormatFor(const std::string& url, const std::string& format);

// POSTs `body` (the XML of ocsInventory for "ocs", the JSON of glpiInventory for
// "glpi") to `url`. SEND_OK with the server's word in `answer` (the OCS RESPONSE,
// e.g. NO_ACCOUNT_UPDATE, or GLPI's status); otherwise one of the statuses above with
// one line in `why`.
int sendScan(const std::string& url, const std::string& format, const std::string& body,
             const SendOptions& opts, std::string* answer, std::string* why);

// Where the program finds the module that holds the HTTP client (an absolute path),
// loaded by the first sendScan; tests link the client itself and need not say.
void setSendModule(const std::string& path);

// The DEVICEID of this host, NAME-YYYY-MM-DD-HH-MM-SS, kept in <folder>/ocs-deviceid
// (mode 0600, made on first use) so that the host stays one computer on the server
// whatever its name becomes. Empty with the reason in `why`.
std::string ocsDeviceId(const std::string& folder, const std::string& hostName, std::string* why);

// Whether `id` has the form the server accepts.
bool ocsDeviceIdValid(const std::string& id);

// The OCS server's answer (zlib-compressed or plain XML) read: the text of
// REPLY/RESPONSE. False when it is not such an answer; at most `cap` bytes are
// inflated.
bool ocsParseReply(const std::string& raw, std::size_t cap, std::string* response);

#endif
