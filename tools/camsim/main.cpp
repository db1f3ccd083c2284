// camsim: an IP camera's web API on 127.0.0.1 for tests and host runs.
//
//   camsim --port-file F [--password P] [--store FILE] [--log FILE]
//          [--no-stok] [--upload-fails] [--redirect] [--reply-size N] [--hang]
//          [--long-url]
//
// Login (POST / with {"method":"do","login":{...}}) answers a token when the
// password matches; POST /stok=<token>/ds answers the upgrade request with
// an upload path, the reboot, and anything else with device information;
// POST /stok=<token>/upgrade/image stores the raw multipart body. The fault
// flags make every answer fail in one way. One connection at a time.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

struct options {
    std::string port_file, password = "null", store, log;
    bool no_stok = false, upload_fails = false, redirect = false, hang = false, long_url = false;
    long reply_size = -1;
};

const char kToken[] = "a1b2c3";

bool parse(int argc, char **argv, options *o)
{
    for (int i = 1; i < argc; i++) {
        std::string a = argv[i];
        auto next = [&](std::string *v) { return i + 1 < argc ? (*v = argv[++i], true) : false; };
        std::string n;
        if (a == "--port-file" ? !next(&o->port_file) : a == "--password" ? !next(&o->password)
            : a == "--store" ? !next(&o->store) : a == "--log" ? !next(&o->log) : false)
            return false;
        if (a == "--reply-size") {
            if (!next(&n))
                return false;
            o->reply_size = atol(n.c_str());
        }
        o->no_stok |= a == "--no-stok";
        o->upload_fails |= a == "--upload-fails";
        o->redirect |= a == "--redirect";
        o->hang |= a == "--hang";
        o->long_url |= a == "--long-url";
    }
    return !o->port_file.empty();
}

// Reads one request: head and a Content-Length body. False on a short read.
bool read_request(int fd, std::string *head, std::string *body)
{
    std::string data;
    char buf[65536];
    size_t end = std::string::npos;
    while ((end = data.find("\r\n\r\n")) == std::string::npos) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0)
            return false;
        data.append(buf, static_cast<size_t>(n));
    }
    *head = data.substr(0, end);
    *body = data.substr(end + 4);
    size_t at = head->find("Content-Length:");
    if (at == std::string::npos)
        at = head->find("content-length:");
    size_t want = at == std::string::npos ? 0 : strtoul(head->c_str() + at + 15, nullptr, 10);
    while (body->size() < want) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0)
            return false;
        body->append(buf, static_cast<size_t>(n));
    }
    return true;
}

void respond(int fd, int status, const std::string &body)
{
    std::string text = "HTTP/1.1 " + std::to_string(status) + (status == 200 ? " OK" : " Found") +
                       "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                       (status == 302 ? "\r\nLocation: /elsewhere" : "") + "\r\nConnection: close\r\n\r\n" + body;
    size_t off = 0;
    while (off < text.size()) {
        ssize_t n = write(fd, text.data() + off, text.size() - off);
        if (n <= 0)
            return;
        off += static_cast<size_t>(n);
    }
}

std::string answer(const options &o, const std::string &path, const std::string &body)
{
    std::string stok = std::string("/stok=") + kToken;
    if (path == "/") {
        bool ok = body.find("%22" + o.password + "%22") != std::string::npos ||
                  body.find("\"" + o.password + "\"") != std::string::npos;
        if (!ok)
            return "{\"error_code\": -40401}";
        return o.no_stok ? "{\"error_code\": 0}" : std::string("{\"error_code\": 0, \"stok\": \"") + kToken + "\"}";
    }
    if (path == stok + "/upgrade/image") {
        if (!o.store.empty())
            std::ofstream(o.store, std::ios::binary) << body;
        return o.upload_fails ? "{\"error_code\": -1}" : "{\"error_code\": 0}";
    }
    if (path != stok + "/ds")
        return "{\"error_code\": -40210}";
    if (body.find("firmware_upgrade") != std::string::npos && o.long_url) // longer than a 128-byte URL
        return "{\"error_code\": 0, \"url\": \"%2Fupgrade%2Fimage%2F" + std::string(120, 'a') + "\"}";
    if (body.find("firmware_upgrade") != std::string::npos)
        return "{\"error_code\": 0, \"url\": \"%2Fupgrade%2Fimage\"}";
    if (body.find("reboot") != std::string::npos)
        return "{\"error_code\": 0}";
    return "{\"error_code\": 0, \"device_info\": {\"model\": \"CAM-SIM\", \"fw_version\": \"1.0.0\"}}";
}

void serve(int fd, const options &o)
{
    std::string head, body;
    if (!read_request(fd, &head, &body))
        return;
    std::string line = head.substr(0, head.find("\r\n"));
    size_t sp1 = line.find(' '), sp2 = line.rfind(' ');
    std::string path = sp1 != std::string::npos && sp2 > sp1 ? line.substr(sp1 + 1, sp2 - sp1 - 1) : "/";
    if (!o.log.empty())
        std::ofstream(o.log, std::ios::app) << line.substr(0, sp1) << " " << path << "\n";
    if (o.hang) {
        char c;
        while (read(fd, &c, 1) > 0) {
        }
        return;
    }
    if (o.redirect)
        respond(fd, 302, "{}");
    else if (o.reply_size >= 0)
        respond(fd, 200, std::string(static_cast<size_t>(o.reply_size), 'x'));
    else
        respond(fd, 200, answer(o, path, body));
}

} // namespace

int main(int argc, char **argv)
{
    options o;
    if (!parse(argc, argv, &o)) {
        fprintf(stderr, "usage: camsim --port-file F [--password P] [--store FILE] [--log FILE] [faults]\n");
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    int lfd = socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    setsockopt(lfd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (bind(lfd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 || listen(lfd, 16) != 0 ||
        getsockname(lfd, reinterpret_cast<sockaddr *>(&addr), &len) != 0)
        return 1;
    std::string tmp = o.port_file + ".tmp";
    std::ofstream(tmp) << ntohs(addr.sin_port) << "\n";
    rename(tmp.c_str(), o.port_file.c_str());
    for (;;) {
        int fd = accept(lfd, nullptr, nullptr);
        if (fd < 0)
            continue;
        serve(fd, o);
        close(fd);
    }
}
