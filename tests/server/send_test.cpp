// Sending to servers that answer badly, started on 127.0.0.1 by the test itself: each
// failure is one line, its own exit status, and bounded in time and memory.
#include <gtest/gtest.h>

#include "../common/run_command.h"
#include "cli/Send.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <netinet/in.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define INVSCAN_ASAN 1
#endif
#endif

namespace {

const std::string kServerDir = std::string(INVSCAN_TEST_DATA) + "/../server";

// bad_server.py, running until the test ends (its stdin closes) or 120 s pass.
class BadServer {
public:
    explicit BadServer(const std::vector<std::string>& extra = {}) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        std::vector<std::string> args = {"/usr/bin/python3", kServerDir + "/bad_server.py"};
        args.insert(args.end(), extra.begin(), extra.end());
        pid_ = fork();
        if (pid_ == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            std::vector<char*> argv;
            for (std::string& a : args)
                argv.push_back(&a[0]);
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        stdin_ = in[1];
        // The port, within 10 s.
        pollfd p = {out[0], POLLIN, 0};
        std::string line;
        char c;
        while (poll(&p, 1, 10000) == 1 && read(out[0], &c, 1) == 1 && c != '\n')
            line += c;
        close(out[0]);
        port_ = std::atoi(line.c_str());
    }
    ~BadServer() {
        if (stdin_ >= 0) close(stdin_);
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
    }
    int port() const { return port_; }

private:
    pid_t pid_ = -1;
    int stdin_ = -1;
    int port_ = 0;
};

bool havePython() {
    return access("/usr/bin/python3", X_OK) == 0;
}

struct Outcome {
    int rc;
    std::string answer, why;
    double seconds;
};

Outcome send(const std::string& url, const std::string& format, const SendOptions& opts = {}) {
    Outcome o;
    const auto start = std::chrono::steady_clock::now();
    o.rc = sendScan(url, format, format == "ocs" ? "<REQUEST/>" : "{}", opts, &o.answer, &o.why);
    o.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return o;
}

// A port nobody listens on: bound, then let go.
int closedPort() {
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
    getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
    close(s);
    return ntohs(a.sin_port);
}

long maxRssKb() {
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

TEST(Send, BadAnswers) {
#ifndef INVSCAN_HAVE_SEND
    GTEST_SKIP() << "built without libcurl: no --server";
#endif
    if (!havePython()) GTEST_SKIP() << "no /usr/bin/python3 to play the servers";
    // Proxies from the environment would take loopback elsewhere.
    setenv("NO_PROXY", "127.0.0.1", 1);
    BadServer server;
    ASSERT_GT(server.port(), 0);
    const std::string base = "http://127.0.0.1:" + std::to_string(server.port()) + "/";
    SendOptions quick;
    quick.totalTimeoutMs = 1500;
    const struct {
        std::string url, format;
        int rc;
        const char* says;
    } cases[] = {
        {base + "ocs", "ocs", SEND_OK, "NO_ACCOUNT_UPDATE"},
        {base + "glpi", "glpi", SEND_OK, "ok"},
        {base + "glpi-error", "glpi", SEND_REFUSED, "JSON does not validate"},
        {base + "refuse", "ocs", SEND_REFUSED, "HTTP 500"},
        {base + "loop", "ocs", SEND_REFUSED, "redirected to"},
        {base + "garbage", "ocs", SEND_NOT_PROTOCOL, "not HTTP"},
        {base + "html", "ocs", SEND_NOT_PROTOCOL, "not an OCS Inventory server's"},
        {base + "html", "glpi", SEND_NOT_PROTOCOL, "not a GLPI server's"},
        {base + "silent", "ocs", SEND_NOT_PROTOCOL, "not HTTP"},
        {base + "huge", "ocs", SEND_NOT_PROTOCOL, "larger than 1048576 bytes"},
        {base + "huge-stream", "ocs", SEND_NOT_PROTOCOL, "larger than 1048576 bytes"},
        {base + "slow", "ocs", SEND_TIMEOUT, "no answer in time"},
        {"http://127.0.0.1:" + std::to_string(closedPort()) + "/ocsinventory", "ocs",
         SEND_UNREACHABLE, "unreachable"},
        {"https://127.0.0.1:" + std::to_string(server.port()) + "/ocs", "ocs", SEND_TLS,
         "TLS failed"},
        {"ftp://127.0.0.1/ocsinventory", "ocs", SEND_USAGE, "not an http"},
        {base + "ocs", "xml", SEND_USAGE, "cannot send the format"},
    };
    const long rssBefore = maxRssKb();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url + " " + c.format);
        const Outcome o = send(c.url, c.format, quick);
        EXPECT_EQ(o.rc, c.rc) << o.why;
        EXPECT_NE((o.rc == SEND_OK ? o.answer : o.why).find(c.says), std::string::npos)
            << o.answer << o.why;
        EXPECT_EQ(o.why.find('\n'), std::string::npos);
        EXPECT_LT(o.seconds, 5.0);
    }
    // A gigabyte on offer, a megabyte kept (a sanitiser's quarantine aside).
#if !defined(__SANITIZE_ADDRESS__) && !defined(INVSCAN_ASAN)
    EXPECT_LT(maxRssKb() - rssBefore, 64 * 1024);
#else
    (void)rssBefore;
#endif
}

TEST(Send, Tls) {
#ifndef INVSCAN_HAVE_SEND
    GTEST_SKIP() << "built without libcurl: no --server";
#endif
    if (!havePython() || access("/usr/bin/openssl", X_OK) != 0)
        GTEST_SKIP() << "no /usr/bin/python3 or /usr/bin/openssl for a TLS server";
    setenv("NO_PROXY", "127.0.0.1", 1);
    char tmpl[] = "/tmp/invscan-tls-XXXXXX";
    ASSERT_TRUE(mkdtemp(tmpl));
    const std::string dir = tmpl, cert = dir + "/cert.pem", key = dir + "/key.pem";
    ASSERT_EQ(testrun::runCommand("/usr/bin/openssl req -x509 -newkey rsa:2048 -nodes -days 2 "
                                  "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 "
                                  "-keyout " +
                                  key + " -out " + cert + " >/dev/null 2>&1")
                  .status,
              0);
    {
        BadServer server({"--tls", cert, key});
        ASSERT_GT(server.port(), 0);
        const std::string url = "https://127.0.0.1:" + std::to_string(server.port()) + "/ocs";
        SendOptions quick;
        quick.totalTimeoutMs = 3000;
        SendOptions trusted = quick;
        trusted.caCert = cert;
        SendOptions missing = quick;
        missing.caCert = dir + "/none.pem";
        const struct {
            std::string url;
            SendOptions opts;
            int rc;
            const char* says;
        } cases[] = {
            {url, quick, SEND_TLS, "certificate does not verify"},
            {url, trusted, SEND_OK, "NO_ACCOUNT_UPDATE"},
            {url, missing, SEND_TLS, ""},
            // Plain HTTP to a TLS server: its alert is no HTTP answer.
            {"http://127.0.0.1:" + std::to_string(server.port()) + "/ocs", quick, SEND_NOT_PROTOCOL,
             "not HTTP"},
        };
        for (const auto& c : cases) {
            SCOPED_TRACE(c.url + " ca=" + c.opts.caCert);
            const Outcome o = send(c.url, "ocs", c.opts);
            EXPECT_EQ(o.rc, c.rc) << o.why;
            EXPECT_NE((o.rc == SEND_OK ? o.answer : o.why).find(c.says), std::string::npos)
                << o.why;
            EXPECT_LT(o.seconds, 5.0);
        }
    }
    testrun::run("rm -rf '" + dir + "'");
}

} // namespace
