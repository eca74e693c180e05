#include "log_int.h"

#include "diag.h"
#include "util.h"
#include "util_int.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace zeb;

namespace {

constexpr size_t k_processed_by_size = 255; // bytes of the line that names the daemon
constexpr long long k_kilobyte = 1024;

// ---- What the configuration says ----

long long number_of(CONF_node *root, const char *key) {
    const char *value = CONF_lookup(root, key);
    return value != nullptr ? strtoll(value, nullptr, 10) : 0;
}

// A number of kilobytes in bytes. A negative one is, as a size, beyond all that can be had.
size_t bytes_of(long long kilobytes) {
    constexpr auto most = static_cast<size_t>(LONG_MAX);
    return kilobytes < 0 || kilobytes > static_cast<long long>(most / k_kilobyte)
               ? most
               : static_cast<size_t>(kilobytes * k_kilobyte);
}

template <size_t N> void set_station(char (&code)[N], const char *id, int (*in_case)(int)) {
    UTIL_strncpynt(code, id, N);
    for (char *c = code; *c != '\0'; ++c)
        *c = static_cast<char>(in_case(static_cast<unsigned char>(*c)));
}

// The odd test is what stations' files rely on: "0", "false", "TRUE" and "no" disable, "true",
// "False" and "1" do not.
bool is_logging(CONF_node *local) {
    const char *value = CONF_lookup(local, "EnableLogging");
    return value == nullptr || value[0] == 't' || value[0] == 'F' || reads_as_nonzero(value);
}

const char *environment(const char *name, const char *fallback) {
    const char *value = getenv(name);
    return value != nullptr ? value : fallback;
}

// The directory of the files; null without memory (reported).
OwnedBlock<char> log_directory(const LOG_file *f, CONF_node *root) {
    const char *configured = CONF_lookup(root, "Disk;LogDir");
    const char *above =
        configured != nullptr ? environment("ZEB2", "") : environment("DB", "/oru/db");
    const char *below = configured != nullptr ? configured : f->stncode_l;
    const size_t size = strlen(above) + strlen(below) + sizeof "/stn//log";
    OwnedBlock<char> path(static_cast<char *>(malloc(size)));
    if (!ZEB_CHECK_ERRNO(path != nullptr))
        return path;
    if (configured != nullptr)
        UTIL_make_relative(configured, path.get());
    else
        snprintf(path.get(), size, "%s/stn/%s/log", above, below);
    return path;
}

void configure(LOG_file *f, CONF_node *root) {
    const long long most = number_of(root, "Disk;MaxFileSize");
    f->max_file_size = most != -1 ? bytes_of(most) : 0;
    f->buffer_limit = bytes_of(number_of(root, "Disk;BufferSize"));
    const char *id = CONF_lookup(root, "Disk;StationID");
    if (id == nullptr)
        id = "nil";
    set_station(f->stncode_l, id, tolower);
    set_station(f->stncode_u, id, toupper);
}

// ---- Opening ----

void insert_headers(LOG_file *f, const char *basename, CONF_node *root, CONF_node *local,
                    va_list extra) {
    if (basename != nullptr) {
        char line[k_processed_by_size];
        snprintf(line, sizeof line, "!fil;ProcessedBy;%s,zeb", basename);
        insert_header(f, line);
    }
    for (const char *branch : {"Global", "Disk", "Control"})
        LOG_add_conf_headers(f, CONF_lookup_tree(root, branch));
    LOG_add_conf_headers(f, local);
    while (const char *line = va_arg(extra, const char *))
        insert_header(f, line);
    insert_standard_headers(f);
}

// A base name that is too long is cut, and found to be too long when the file is named.
bool begin_first(LOG_file *f, CONF_node *root, const char *basename) {
    const OwnedBlock<char> directory = log_directory(f, root);
    if (directory == nullptr)
        return false;
    snprintf(f->basename, sizeof f->basename, "%s/%s", directory.get(), basename);
    char filename[sizeof f->filename];
    if (name_for_now(f, filename) && begin_file(f, filename)) {
        f->problem_switching = FALSE;
        return true;
    }
    const int error = errno;
    ZEB_REPORT_ERRNO("Unable to open file %s", filename);
    errno = error;
    ZEB_REPORT_ERRNO("Unable to open log file \"%s\"", directory.get());
    return false;
}

void free_records(LOG_file *f) {
    for (LL_NODE *node = f->records.head; node != nullptr; node = node->next)
        free_record(static_cast<LOG_record_defn *>(node->data));
    LL_clear(&f->records);
}

} // namespace

BOOL LOG_init(LOG_file *f) {
    *f = {};
    f->fh = -1;
    strcpy(f->basename, "UNDEF");
    strcpy(f->stncode_u, "STN");
    strcpy(f->stncode_l, "stn");
    LL_init(&f->headers);
    LL_init(&f->records);
    SFMT_init_buffer(&f->sbfr);
    return TRUE;
}

BOOL LOG_open(LOG_file *f, CONF_node *root, CONF_node *local, ZEBMSG_link *lnk) {
    return LOG_open_n(f, root, local, lnk, nullptr);
}

BOOL LOG_open_n(LOG_file *f, CONF_node *root, CONF_node *local, ZEBMSG_link *lnk, ...) {
    const char *basename = CONF_lookup(local, "fil;name");
    if (basename == nullptr)
        return FALSE;
    va_list extra;
    va_start(extra, lnk);
    const BOOL opened = LOG_open_basename_va(f, basename, root, local, lnk, extra);
    va_end(extra);
    return opened;
}

BOOL LOG_open_basename(LOG_file *f, const char *basename, CONF_node *root, CONF_node *local,
                       ZEBMSG_link *lnk) {
    return LOG_open_basename_n(f, basename, root, local, lnk, nullptr);
}

BOOL LOG_open_basename_n(LOG_file *f, const char *basename, CONF_node *root, CONF_node *local,
                         ZEBMSG_link *lnk, ...) {
    va_list extra;
    va_start(extra, lnk);
    const BOOL opened = LOG_open_basename_va(f, basename, root, local, lnk, extra);
    va_end(extra);
    return opened;
}

// The header is complete before the file is begun, so that the file is never without it.
BOOL LOG_open_basename_va(LOG_file *f, const char *basename, CONF_node *root, CONF_node *local,
                          ZEBMSG_link *lnk, va_list extra) {
    configure(f, root);
    insert_headers(f, basename, root, local, extra);
    const BOOL enabled_before = f->info.enabled;
    f->info.enabled = is_logging(local);
    if (basename != nullptr && !begin_first(f, root, basename)) {
        f->info.enabled = enabled_before;
        return FALSE;
    }
    post_state(lnk, &f->info);
    return TRUE;
}

void LOG_close(LOG_file *f) {
    forget_requests(f);
    free_records(f);
    LL_clear(&f->headers);
    close_file(f);
    if (f->lost != 0)
        ZEB_REPORT("Log file \"%s\" is closed, %zu lines were lost", f->filename, f->lost);
    f->lost = 0;
    f->interrupted = FALSE;
    SFMT_destroy_buffer(&f->sbfr);
}
