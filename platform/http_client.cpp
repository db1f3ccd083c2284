#include "platform/http_client.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <pthread.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "platform/trace.h"

namespace {

enum { RECV_LIMIT = 4091, RECV_TEXT = 4092 };

struct http_recv_buf {
    int32_t length;
    char text[RECV_TEXT];
};

// The shared header list lives only for one call, and the calls that use it
// run one at a time under this mutex; the multipart post and the download
// build lists of their own and need no lock.
pthread_mutex_t g_http_lock = PTHREAD_MUTEX_INITIALIZER;

// libcurl's entry points, taken from the shared library on first use rather
// than linked: Debian's libcurl maps GnuTLS, OpenSSL, Kerberos, LDAP and SSH
// at start-up, megabytes of resident memory a daemon that may never contact
// a camera does not need. curl's headers give the types only.
struct curl_api {
    CURLcode (*global_init)(long flags);
    CURL *(*easy_init)(void);
    CURLcode (*easy_setopt)(CURL *curl, CURLoption option, ...);
    CURLcode (*easy_perform)(CURL *curl);
    CURLcode (*easy_getinfo)(CURL *curl, CURLINFO info, ...);
    void (*easy_cleanup)(CURL *curl);
    const char *(*easy_strerror)(CURLcode code);
    curl_slist *(*slist_append)(curl_slist *list, const char *text);
    void (*slist_free_all)(curl_slist *list);
    curl_mime *(*mime_init)(CURL *curl);
    curl_mimepart *(*mime_addpart)(curl_mime *mime);
    CURLcode (*mime_name)(curl_mimepart *part, const char *name);
    CURLcode (*mime_filedata)(curl_mimepart *part, const char *file);
    CURLcode (*mime_type)(curl_mimepart *part, const char *type);
    void (*mime_free)(curl_mime *mime);
};

struct curl_symbol {
    const char *name;
    size_t offset; // of the pointer in curl_api
};

const curl_symbol k_curl_symbols[] = {
    {.name = "curl_global_init", .offset = offsetof(curl_api, global_init)},
    {.name = "curl_easy_init", .offset = offsetof(curl_api, easy_init)},
    {.name = "curl_easy_setopt", .offset = offsetof(curl_api, easy_setopt)},
    {.name = "curl_easy_perform", .offset = offsetof(curl_api, easy_perform)},
    {.name = "curl_easy_getinfo", .offset = offsetof(curl_api, easy_getinfo)},
    {.name = "curl_easy_cleanup", .offset = offsetof(curl_api, easy_cleanup)},
    {.name = "curl_easy_strerror", .offset = offsetof(curl_api, easy_strerror)},
    {.name = "curl_slist_append", .offset = offsetof(curl_api, slist_append)},
    {.name = "curl_slist_free_all", .offset = offsetof(curl_api, slist_free_all)},
    {.name = "curl_mime_init", .offset = offsetof(curl_api, mime_init)},
    {.name = "curl_mime_addpart", .offset = offsetof(curl_api, mime_addpart)},
    {.name = "curl_mime_name", .offset = offsetof(curl_api, mime_name)},
    {.name = "curl_mime_filedata", .offset = offsetof(curl_api, mime_filedata)},
    {.name = "curl_mime_type", .offset = offsetof(curl_api, mime_type)},
    {.name = "curl_mime_free", .offset = offsetof(curl_api, mime_free)},
    {.name = nullptr, .offset = 0},
};

static_assert(sizeof(void *) == sizeof(void (*)(void)), "dlsym results are stored as function pointers");

// Fills api from the library; false (with a trace) when a symbol is missing.
bool resolve_curl(void *lib, curl_api *api)
{
    for (const curl_symbol *s = k_curl_symbols; s->name; s++) {
        void *fn = dlsym(lib, s->name);
        if (!fn) {
            DS_TRACE_AS("init_curl_easy_handle", TRACE_ERROR, "libcurl lacks %s", s->name);
            return false;
        }
        memcpy(reinterpret_cast<char *>(api) + s->offset, &fn, sizeof fn);
    }
    return true;
}

// The loaded library, or nullptr when it could not be loaded: every HTTP call
// then fails through its ordinary error path. Any thread. The first caller
// opens libcurl, resolves the table and sets up curl's global state (which
// must happen once per process: setting it up and tearing it down per request
// is not safe while another thread transfers) inside std::call_once; callers
// arriving meanwhile wait for it, and call_once's completion orders those
// writes before every later caller's reads, so the table needs no lock. It is
// never written again. The library stays loaded for the life of the process;
// a failed load is not retried (it traces once).
const curl_api *curl_lib(void)
{
    static std::once_flag once;
    static curl_api api;
    static const curl_api *loaded = nullptr;
    std::call_once(once, [] {
        void *lib = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
        if (!lib) {
            DS_TRACE_AS("init_curl_easy_handle", TRACE_ERROR, "cannot load libcurl: %s", dlerror());
            return;
        }
        if (!resolve_curl(lib, &api)) {
            dlclose(lib);
            return;
        }
        CURLcode rc = api.global_init(CURL_GLOBAL_ALL);
        if (rc != CURLE_OK)
            DS_TRACE_AS("init_curl_easy_handle", TRACE_ERROR, "curl_global_init failed: %s", api.easy_strerror(rc));
        loaded = &api;
    });
    return loaded;
}

size_t http_write_data(char *data, size_t size, size_t count, void *user)
{
    auto *rb = static_cast<http_recv_buf *>(user);
    size_t n = size * count;
    rb->length += static_cast<int32_t>(n);
    if (rb->length >= RECV_LIMIT) {
        DS_TRACE_AS("http_write_data", TRACE_ERROR, "http write data ERROR: recv more than buffer size!");
        return 0;
    }
    strncat(rb->text, data, n);
    return n;
}

struct http_lock {
    http_lock() { pthread_mutex_lock(&g_http_lock); }
    ~http_lock() { pthread_mutex_unlock(&g_http_lock); }
};

// Handles and lists exist only once the library is loaded, so the deleters
// find it there.
struct curl_easy_deleter {
    void operator()(CURL *c) const { curl_lib()->easy_cleanup(c); }
};
struct slist_deleter {
    void operator()(curl_slist *l) const { curl_lib()->slist_free_all(l); }
};
struct mime_deleter {
    void operator()(curl_mime *m) const { curl_lib()->mime_free(m); }
};

bool flags_ok(int with_stok, int with_ds)
{
    if (with_stok > 1) {
        DS_TRACE_AS("http_single_post", TRACE_ERROR, "invalid argument, with_stok = %d", with_stok);
        return false;
    }
    if (with_ds > 1) {
        DS_TRACE_AS("http_single_post", TRACE_ERROR, "invalid argument, with_ds = %d", with_ds);
        return false;
    }
    return true;
}

// Performs and copies a 200 reply; -1 otherwise.
int perform_and_copy(const curl_api *api, CURL *curl, http_recv_buf *rb, char *reply)
{
    CURLcode rc = api->easy_perform(curl);
    if (rc != CURLE_OK) {
        DS_TRACE_AS("http_single_post", TRACE_ERROR, "curl_easy_perform() failed: %d", static_cast<int>(rc));
        return -1;
    }
    long status = 0;
    api->easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status != 200)
        return -1;
    strcpy(reply, rb->text);
    return 0;
}

} // namespace

int http_makeup_url(const char *ip, const char *port, const char *stok, int with_stok, int with_ds,
                    char *url, const char *path)
{
    if (!ip || !url || !port) {
        DS_ERR("invalid argument: ip = %s, port = %s", ip ? ip : "(null)", port ? port : "(null)");
        return -1;
    }
    std::string out = std::string("http://") + ip + ":" + (atoi(port) == 0 ? "80" : port);
    if (with_stok == 1) {
        if (!stok) {
            DS_ERR("invalid argument: stok = (null)");
            return -1;
        }
        out += std::string("/stok=") + stok;
    }
    if (with_ds == 1)
        out += "/ds";
    if (path)
        out += path;
    // A cut URL would post to another path of the camera: refuse instead.
    if (out.size() >= HTTP_URL_LEN) {
        DS_ERR("url too long (%zu bytes, at most %d): refused", out.size(), HTTP_URL_LEN - 1);
        return -1;
    }
    snprintf(url, HTTP_URL_LEN, "%s", out.c_str());
    return 0;
}

int http_single_post(const char *ip, const char *port, const char *stok, int with_stok, int with_ds,
                     const char *body, char *reply, int timeout_ms)
{
    char url[HTTP_URL_LEN] = {0};
    if (!ip || !port || !body || !reply) {
        DS_ERR("invalid argument.");
        return -1;
    }
    if (!flags_ok(with_stok, with_ds))
        return -1;
    const curl_api *api = curl_lib();
    http_lock lock;
    std::unique_ptr<curl_slist, slist_deleter> headers(
        api ? api->slist_append(nullptr, "Content-Type:application/json") : nullptr);
    if (http_makeup_url(ip, port, stok, with_stok, with_ds, url, nullptr) != 0) {
        DS_ERR("http_makeup_url failed");
        return -1;
    }
    std::unique_ptr<CURL, curl_easy_deleter> curl(api ? api->easy_init() : nullptr);
    if (!curl) {
        DS_ERR("curl_easy_init failed");
        DS_ERR("init_http_handle failed");
        return -1;
    }
    auto rb = std::make_unique<http_recv_buf>();
    memset(rb.get(), 0, sizeof *rb);
    api->easy_setopt(curl.get(), CURLOPT_URL, url);
    api->easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    api->easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(timeout_ms));
    api->easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body);
    api->easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, http_write_data);
    api->easy_setopt(curl.get(), CURLOPT_WRITEDATA, rb.get());
    api->easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    api->easy_setopt(curl.get(), CURLOPT_BUFFERSIZE, 4096L);
    api->easy_setopt(curl.get(), CURLOPT_MAXFILESIZE, 4096L);
    return perform_and_copy(api, curl.get(), rb.get(), reply);
}

int http_mutipartform_post_upload_file(const char *ip, const char *port, const char *stok, int with_stok,
                                       const char *path, const char *file, char *reply)
{
    char url[HTTP_URL_LEN] = {0};
    if (!ip || !port || !file || !reply) {
        DS_ERR("invalid argument.");
        return -1;
    }
    const curl_api *api = curl_lib();
    DS_ERR("curl_formadd filesize\n");
    DS_ERR("curl_formadd submit\n");
    DS_ERR("curl curl_easy_init\n");
    std::unique_ptr<CURL, curl_easy_deleter> curl(api ? api->easy_init() : nullptr);
    if (!curl)
        return 0; // nothing sent; callers tolerate it, as they always have
    std::unique_ptr<curl_mime, mime_deleter> mime(api->mime_init(curl.get()));
    curl_mimepart *part = api->mime_addpart(mime.get());
    api->mime_name(part, "filename");
    api->mime_filedata(part, file);
    api->mime_type(part, "application/octet-stream");
    curl_slist *list = nullptr;
    for (const char *h : {"Expect:", "Accept:text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8",
                          "Accept-Encoding:Accept-Encoding", "Accept-Language:zh-CN,zh;q=0.8,en-US;q=0.5,en;q=0.3",
                          "Connection:keep-alive"})
        list = api->slist_append(list, h);
    std::unique_ptr<curl_slist, slist_deleter> headers(list);
    DS_ERR("curl true begin post\n");
    int rc = -1;
    if (http_makeup_url(ip, port, stok, with_stok, 0, url, path) == 0) {
        DS_ERR("url : %s\n", url);
        auto rb = std::make_unique<http_recv_buf>();
        memset(rb.get(), 0, sizeof *rb);
        api->easy_setopt(curl.get(), CURLOPT_URL, url);
        api->easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
        api->easy_setopt(curl.get(), CURLOPT_MIMEPOST, mime.get());
        api->easy_setopt(curl.get(), CURLOPT_WRITEDATA, rb.get());
        api->easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, http_write_data);
        api->easy_setopt(curl.get(), CURLOPT_BUFFERSIZE, 4096L);
        api->easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
        // A camera that stops taking the image must not hold the worker for ever.
        api->easy_setopt(curl.get(), CURLOPT_LOW_SPEED_LIMIT, 1L);
        api->easy_setopt(curl.get(), CURLOPT_LOW_SPEED_TIME, 40L);
        CURLcode cc = api->easy_perform(curl.get());
        if (cc == CURLE_OK) {
            strcpy(reply, rb->text);
            rc = 0;
        } else {
            DS_ERR("curl_easy_perform() failed: %d, %s\n", static_cast<int>(cc), api->easy_strerror(cc));
        }
    } else {
        DS_ERR("http_makeup_url failed");
    }
    return rc;
}
