// Client side of dsd's socket protocol: an info record and a request record
// out, one response record back. Used by the CLI, the benchmark and tests.
#pragma once

#include <cstdint>
#include <string>

struct dsd_identity {
    std::string user = "admin";
    int group = 1;
    int client = 8; // raw JSON both ways: what a developer types is what dsd reads
};

// Connects to the daemon's socket; the descriptor or -1.
int dsd_connect(const std::string &socket_path);

// One type-length-value record (big-endian header). False on a short write.
bool dsd_send_record(int fd, uint32_t type, const std::string &value);

// Appends the bytes of one record to *out, for sending several in one write.
void dsd_append_record(std::string *out, uint32_t type, const std::string &value);

// Sends bytes as they are (for malformed records). False on a short write.
bool dsd_send_record_bytes(int fd, const std::string &bytes);

// Reads one record; false on end of stream, error or a record larger than
// max_len. timeout_ms bounds each wait for data (0: no bound).
bool dsd_read_record(int fd, uint32_t *type, std::string *value, int timeout_ms,
                     uint32_t max_len = 16u << 20);

// The info record's JSON text for an identity.
std::string dsd_info_json(const dsd_identity &who);

// Whole exchange on a new connection: the response text, or "" on failure
// (with the reason in *error when given).
std::string dsd_request(const std::string &socket_path, const dsd_identity &who,
                        const std::string &request, int timeout_ms = 30000,
                        std::string *error = nullptr);
