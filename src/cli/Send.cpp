#include "cli/Send.h"

#include "invscan/SafeFile.h"

#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#ifdef INVSCAN_HAVE_SEND
#include <zlib.h>
#endif
#ifdef INVSCAN_SEND_HTTP
#include <curl/curl.h>
#define INVSCAN_SEND_EXPORT __attribute__((visibility("default")))
#else
#include <dlfcn.h>
#endif

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string lower(std::string s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return s;
}

// The scheme of `url` in lower case, and its path without query or fragment.
bool splitUrl(const std::string& url, std::string* scheme, std::string* path) {
    std::size_t colon = url.find("://");
    if (colon == std::string::npos || colon == 0) return false;
    *scheme = lower(url.substr(0, colon));
    std::size_t start = url.find('/', colon + 3);
    if (colon + 3 >= url.size() || start == colon + 3) return false;
    std::string p = start == std::string::npos ? "/" : url.substr(start);
    *path = p.substr(0, p.find_first_of("?#"));
    return true;
}

std::string oneLine(const std::string& s, std::size_t max = 200) {
    std::string out;
    for (char c : s) {
        if (out.size() >= max) {
            out += "...";
            break;
        }
        const unsigned char u = static_cast<unsigned char>(c);
        out += u < 0x20 || u == 0x7F ? ' ' : c;
    }
    std::size_t e = out.find_last_not_of(' ');
    return e == std::string::npos ? std::string() : out.substr(0, e + 1);
}

#ifdef INVSCAN_SEND_HTTP
// zlib's stream format, which the OCS server reads as application/x-compress.
bool deflateAll(const std::string& in, std::string* out) {
    uLongf size = compressBound(static_cast<uLong>(in.size()));
    out->resize(size);
    if (compress2(reinterpret_cast<Bytef*>(&(*out)[0]), &size,
                  reinterpret_cast<const Bytef*>(in.data()), static_cast<uLong>(in.size()),
                  Z_DEFAULT_COMPRESSION) != Z_OK)
        return false;
    out->resize(size);
    return true;
}
#endif

#ifdef INVSCAN_HAVE_SEND

// At most `cap` bytes inflated; false on anything but one whole zlib stream.
bool inflateCapped(const std::string& in, std::size_t cap, std::string* out) {
    z_stream z;
    std::memset(&z, 0, sizeof z);
    if (inflateInit(&z) != Z_OK) return false;
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    z.avail_in = static_cast<uInt>(in.size());
    out->clear();
    char buf[16384];
    int rc = Z_OK;
    while (rc == Z_OK) {
        z.next_out = reinterpret_cast<Bytef*>(buf);
        z.avail_out = sizeof buf;
        rc = inflate(&z, Z_NO_FLUSH);
        const std::size_t got = sizeof buf - z.avail_out;
        if (out->size() + got > cap) {
            rc = Z_MEM_ERROR;
            break;
        }
        out->append(buf, got);
        if (rc == Z_BUF_ERROR && z.avail_in == 0) break; // truncated
        if (rc == Z_OK && got == 0 && z.avail_in == 0) break;
    }
    inflateEnd(&z);
    return rc == Z_STREAM_END;
}
#endif

#ifdef INVSCAN_SEND_HTTP

struct Sink {
    std::string data;
    std::size_t cap;
    bool tooLarge = false;
};

size_t keep(char* ptr, size_t size, size_t n, void* user) {
    Sink* sink = static_cast<Sink*>(user);
    const std::size_t len = size * n;
    if (sink->data.size() + len > sink->cap) {
        sink->tooLarge = true;
        return 0; // aborts the transfer
    }
    sink->data.append(ptr, len);
    return len;
}

// The word of a GLPI server: {"status":"ok"} or an error with its message.
int glpiAnswer(const std::string& raw, std::string* answer, std::string* why) {
    const nlohmann::json j = nlohmann::json::parse(raw, nullptr, false);
    if (j.is_object() && j.contains("status") && j["status"].is_string()) {
        const std::string status = j["status"].get<std::string>();
        std::string message;
        if (j.contains("message") && j["message"].is_string())
            message = j["message"].get<std::string>();
        if (status == "error") {
            *why = "the server refused the inventory: " + oneLine(message.empty() ? raw : message);
            return SEND_REFUSED;
        }
        *answer = message.empty() ? status : status + ": " + oneLine(message);
        return SEND_OK;
    }
    // Older servers answer the agent's XML protocol.
    pugi::xml_document doc;
    if (doc.load_buffer(raw.data(), raw.size()) && doc.child("REPLY")) {
        *answer = oneLine(doc.child("REPLY").child_value("RESPONSE"));
        if (answer->empty()) *answer = "REPLY";
        return SEND_OK;
    }
    *why = "the answer is not a GLPI server's: " + oneLine(raw, 80);
    return SEND_NOT_PROTOCOL;
}

struct CurlGlobal {
    CurlGlobal() { ok = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; }
    ~CurlGlobal() { curl_global_cleanup(); }
    bool ok;
};

#endif

} // namespace

std::string sendFormatFor(const std::string& url, const std::string& format) {
    if (format == "ocs" || format == "glpi") return format;
    std::string scheme, path;
    if (!splitUrl(url, &scheme, &path)) return "glpi";
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    const std::string tail = "/ocsinventory";
    return path.size() >= tail.size() && lower(path.substr(path.size() - tail.size())) == tail
               ? "ocs"
               : "glpi";
}

bool ocsParseReply(const std::string& raw, std::size_t cap, std::string* response) {
    std::string xml;
#ifdef INVSCAN_HAVE_SEND
    if (!inflateCapped(raw, cap, &xml)) {
#else
    {
#endif
        if (raw.size() > cap || raw.find("<REPLY") == std::string::npos) return false;
        xml = raw;
    }
    pugi::xml_document doc;
    if (!doc.load_buffer(xml.data(), xml.size())) return false;
    pugi::xml_node reply = doc.child("REPLY");
    if (!reply) return false;
    *response = oneLine(reply.child_value("RESPONSE"));
    return true;
}

#ifdef INVSCAN_SEND_HTTP
int sendScan(const std::string& url, const std::string& format, const std::string& body,
             const SendOptions& opts, std::string* answer, std::string* why) {
    answer->clear();
    std::string scheme, path;
    if (!splitUrl(url, &scheme, &path) || (scheme != "http" && scheme != "https")) {
        *why = "'" + oneLine(url) + "' is not an http:// or https:// address";
        return SEND_USAGE;
    }
    if (format != "ocs" && format != "glpi") {
        *why = "cannot send the format '" + format + "' (ocs or glpi)";
        return SEND_USAGE;
    }
    std::string payload;
    if (format == "ocs" && !deflateAll(body, &payload)) {
        *why = "the inventory could not be compressed";
        return SEND_LOCAL;
    }

    static CurlGlobal global;
    std::unique_ptr<CURL, void (*)(CURL*)> curl(global.ok ? curl_easy_init() : nullptr,
                                                curl_easy_cleanup);
    if (!curl) {
        *why = "libcurl could not be set up";
        return SEND_LOCAL;
    }
    CURL* h = curl.get();
    const std::string& data = format == "ocs" ? payload : body;
    curl_slist* headers = nullptr;
    headers = curl_slist_append(headers, format == "ocs" ? "Content-Type: application/x-compress"
                                                         : "Content-Type: application/json");
    headers = curl_slist_append(headers, "Expect:"); // one round trip, not two
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headerList(headers, curl_slist_free_all);
    Sink sink;
    sink.cap = opts.maxAnswer;
    char error[CURL_ERROR_SIZE] = "";

    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    // The address's own scheme only: https never falls back to http.
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, scheme.c_str());
    curl_easy_setopt(h, CURLOPT_REDIR_PROTOCOLS_STR, scheme.c_str());
#else
    const long proto = scheme == "https" ? CURLPROTO_HTTPS : CURLPROTO_HTTP;
    curl_easy_setopt(h, CURLOPT_PROTOCOLS, proto);
    curl_easy_setopt(h, CURLOPT_REDIR_PROTOCOLS, proto);
#endif
    // A POST is never replayed: a redirect is reported, not followed.
    curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(h, CURLOPT_POST, 1L);
    curl_easy_setopt(h, CURLOPT_POSTFIELDS, data.data());
    curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(data.size()));
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(h, CURLOPT_USERAGENT, opts.userAgent.c_str());
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, keep);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, opts.connectTimeoutMs);
    curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, opts.totalTimeoutMs);
    curl_easy_setopt(h, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(opts.maxAnswer));
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!opts.caCert.empty()) curl_easy_setopt(h, CURLOPT_CAINFO, opts.caCert.c_str());

    const CURLcode rc = curl_easy_perform(h);
    const std::string detail = error[0] ? oneLine(error) : curl_easy_strerror(rc);
    const std::string where = "cannot send to " + oneLine(url) + ": ";
    switch (rc) {
    case CURLE_OK:
        break;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
        *why = where + "unreachable (" + detail + ")";
        return SEND_UNREACHABLE;
    case CURLE_OPERATION_TIMEDOUT:
        *why = where + "no answer in time (" + detail + ")";
        return SEND_TIMEOUT;
    case CURLE_PEER_FAILED_VERIFICATION:
        *why = where + "the server's certificate does not verify (" + detail + ")";
        return SEND_TLS;
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_CIPHER:
    case CURLE_USE_SSL_FAILED:
        *why = where + "TLS failed (" + detail + ")";
        return SEND_TLS;
    case CURLE_WRITE_ERROR:
    case CURLE_FILESIZE_EXCEEDED:
        if (sink.tooLarge || rc == CURLE_FILESIZE_EXCEEDED) {
            *why = where + "the answer is larger than " + std::to_string(opts.maxAnswer) +
                   " bytes; not a server of this protocol";
            return SEND_NOT_PROTOCOL;
        }
        *why = where + detail;
        return SEND_LOCAL;
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_BAD_CONTENT_ENCODING:
        *why = where + "the answer is not HTTP from an inventory server (" + detail + ")";
        return SEND_NOT_PROTOCOL;
    case CURLE_OUT_OF_MEMORY:
        *why = where + detail;
        return SEND_LOCAL;
    default:
        *why = where + detail;
        return SEND_NOT_PROTOCOL;
    }

    long status = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    if (status >= 300 && status < 400) {
        char* location = nullptr;
        curl_easy_getinfo(h, CURLINFO_REDIRECT_URL, &location);
        *why = where + "HTTP " + std::to_string(status) + ", redirected to " +
               (location ? oneLine(location) : std::string("nowhere")) +
               " (not followed: give that address)";
        return SEND_REFUSED;
    }
    if (status < 200 || status >= 300) {
        std::string said;
        if (format == "glpi") {
            const nlohmann::json j = nlohmann::json::parse(sink.data, nullptr, false);
            if (j.is_object() && j.contains("message") && j["message"].is_string())
                said = ": " + oneLine(j["message"].get<std::string>());
        }
        *why =
            where + "the server refused the inventory (HTTP " + std::to_string(status) + said + ")";
        return SEND_REFUSED;
    }
    if (format == "glpi") {
        const int r = glpiAnswer(sink.data, answer, why);
        if (r != SEND_OK) *why = where + *why;
        return r;
    }
    if (!ocsParseReply(sink.data, opts.maxAnswer, answer)) {
        *why = where + "the answer is not an OCS Inventory server's (HTTP " +
               std::to_string(status) + ", " + std::to_string(sink.data.size()) + " bytes)";
        return SEND_NOT_PROTOCOL;
    }
    if (answer->empty()) *answer = "REPLY";
    return SEND_OK;
}

// The program's way in: libcurl and everything it links (38 libraries, 5 ms at every
// start) are loaded only by a scan that sends.
extern "C" INVSCAN_SEND_EXPORT int
invscan_send_scan(const std::string& url, const std::string& format, const std::string& body,
                  const SendOptions& opts, std::string* answer, std::string* why) {
    return sendScan(url, format, body, opts, answer, why);
}
#elif defined(INVSCAN_HAVE_SEND)
namespace {
std::string g_module;
}

void setSendModule(const std::string& path) {
    g_module = path;
}

int sendScan(const std::string& url, const std::string& format, const std::string& body,
             const SendOptions& opts, std::string* answer, std::string* why) {
    answer->clear();
    typedef int Send(const std::string&, const std::string&, const std::string&, const SendOptions&,
                     std::string*, std::string*);
    static Send* send = nullptr;
    if (!send) {
        // By an absolute path only: a relative one would be looked up in the
        // working folder's reach.
        const std::string& module = g_module;
        if (module.empty() || module[0] != '/') {
            *why = "cannot send: the sending module's place is not known";
            return SEND_LOCAL;
        }
        void* h = ::dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
        send = h ? reinterpret_cast<Send*>(::dlsym(h, "invscan_send_scan")) : nullptr;
        if (!send) {
            const char* e = ::dlerror();
            *why = "cannot send: " + (e ? std::string(e) : module + " has no sender");
            return SEND_LOCAL;
        }
    }
    return send(url, format, body, opts, answer, why);
}
#else
void setSendModule(const std::string&) {}

int sendScan(const std::string& url, const std::string&, const std::string&, const SendOptions&,
             std::string* answer, std::string* why) {
    answer->clear();
    *why = "cannot send to " + url + ": this build of invscan has no HTTP client (libcurl)";
    return SEND_LOCAL;
}
#endif

bool ocsDeviceIdValid(const std::string& id) {
    // NAME-YYYY-MM-DD-HH-MM-SS, NAME not empty.
    const std::size_t tail = 20;
    if (id.size() <= tail || id.size() > 255) return false;
    const std::string t = id.substr(id.size() - tail);
    for (std::size_t i = 0; i < tail; ++i) {
        const bool dash = i == 0 || i == 5 || i == 8 || i == 11 || i == 14 || i == 17;
        if (dash ? t[i] != '-' : !(t[i] >= '0' && t[i] <= '9')) return false;
    }
    for (char c : id)
        if (static_cast<unsigned char>(c) < 0x21 || c == 0x7F || c == '<' || c == '&') return false;
    return true;
}

std::string ocsDeviceId(const std::string& folder, const std::string& hostName, std::string* why) {
    const std::string path = folder + "/ocs-deviceid";
    auto readBack = [&](int fd) {
        std::string id, reason;
        if (!safefile::readKeptLine(fd, 512, &id, &reason)) {
            *why = path + ": " + reason;
        } else if (!ocsDeviceIdValid(id)) {
            *why = path + ": does not hold a device id (NAME-YYYY-MM-DD-HH-MM-SS); remove it "
                          "to make a new one";
            id.clear();
        }
        ::close(fd);
        return id;
    };
    std::string reason;
    int in = safefile::openRead(path.c_str(), &reason);
    if (in >= 0) return readBack(in);
    if (errno != ENOENT) {
        *why = path + ": " + reason;
        return std::string();
    }

    std::string name;
    for (char c : hostName.substr(0, 200)) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
        name += plain ? c : '_';
    }
    if (name.empty()) name = "unknown";
    const std::time_t now = std::time(nullptr);
    std::tm tm;
    char when[32];
    if (!gmtime_r(&now, &tm) || std::strftime(when, sizeof when, "%Y-%m-%d-%H-%M-%S", &tm) == 0) {
        *why = "the clock cannot be read";
        return std::string();
    }
    const std::string id = name + "-" + when;

    // The folder and those above it (~/.config/invscan on a new account), made one
    // descriptor at a time.
    int made = safefile::makeDirs(folder.c_str(), nullptr);
    if (made >= 0) ::close(made);
    // O_EXCL: two first sends at once agree on whichever id was made first.
    // Readable by all: the id names the host to its server, and a scan without root
    // sends the same one.
    int out = safefile::createNew(path.c_str(), 0644, &reason);
    if (out < 0) {
        if (errno == EEXIST) {
            in = safefile::openRead(path.c_str(), &reason);
            if (in >= 0) return readBack(in);
        }
        *why = path + ": " + reason;
        return std::string();
    }
    const std::string line = id + "\n";
    bool ok = safefile::writeAllFd(out, line.data(), line.size());
    if (::close(out) != 0) ok = false;
    if (!ok) {
        *why = path + ": cannot be written";
        ::unlink(path.c_str());
        return std::string();
    }
    return id;
}
