#include "log_int.h"

#include "avg.h"
#include "diag.h"
#include "sfmt_int.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

using namespace zeb;

namespace {

// What is further from the epoch (s) is no time of a measurement; the year has five digits there.
constexpr double k_latest = 549755813888.0;

// ---- Printing a value ----

void *no_text(void *) {
    static char empty[] = "";
    return empty;
}

double real_of(void *value) {
    return static_cast<Value *>(value)->real;
}

int int_of(void *value) {
    return static_cast<int>(static_cast<Value *>(value)->integer);
}

long long integer_of(void *value) {
    return static_cast<Value *>(value)->integer;
}

long long to_integer(double real) {
    constexpr double limit = 9.2e18;
    return std::fabs(real) < limit ? static_cast<long long>(real) : 0;
}

// ---- Getting a value ----

double averaged(const LOG_map_defn *defn) {
    switch (defn->type) {
    case LVT_AVG_SHIFTING:
        return AVG_shift_avg(static_cast<AVG_shifting *>(defn->pd));
    case LVT_AVG_SHIFTING_RUNNING:
        return AVG_shift_running_avg(static_cast<AVG_shifting *>(defn->pd));
    case LVT_AVG_FIXED:
        return AVG_fixed_avg(static_cast<AVG_fixed *>(defn->pd));
    default:
        return AVG_simple_avg(static_cast<AVG_simple *>(defn->pd));
    }
}

// The value in memory, which need not be aligned: it may be a member of a packed record.
template <class T> T stored(const LOG_map_defn *defn) {
    T value = {};
    if (ZEB_CHECK(defn->pd != nullptr))
        memcpy(&value, defn->pd, sizeof value);
    return value;
}

// The arguments of a write call, taken in the order of the table.
struct Arguments {
    va_list list;
};

double real_value(const LOG_map_defn *defn, Arguments *args) {
    switch (defn->type) {
    case LVT_DOUBLE:
        return stored<double>(defn);
    case LVT_MVC:
        return MVC;
    case LVT_VA_DOUBLE:
        return va_arg(args->list, double);
    default:
        return averaged(defn);
    }
}

long long integer_value(const LOG_map_defn *defn, Arguments *args) {
    switch (defn->type) {
    case LVT_BYTE:
        return stored<BYTE>(defn);
    case LVT_WORD:
        return stored<WORD>(defn);
    case LVT_QWORD:
        return static_cast<long long>(stored<QWORD>(defn));
    case LVT_VA_PTR:
        return static_cast<DWORD>(reinterpret_cast<uintptr_t>(va_arg(args->list, void *)));
    case LVT_VA_BYTE:
        return static_cast<BYTE>(va_arg(args->list, int));
    case LVT_VA_WORD:
        return static_cast<WORD>(va_arg(args->list, int));
    case LVT_VA_DWORD:
        return va_arg(args->list, DWORD);
    case LVT_VA_QWORD:
        return static_cast<long long>(va_arg(args->list, QWORD));
    default:
        return stored<DWORD>(defn);
    }
}

bool is_real(LOG_VAR_TYPE type) {
    return (type >= LVT_AVG_SHIFTING && type <= LVT_MVC) || type == LVT_VA_DOUBLE;
}

bool is_integer(LOG_VAR_TYPE type) {
    return (type >= LVT_PTR && type <= LVT_QWORD) || (type >= LVT_VA_PTR && type <= LVT_VA_QWORD);
}

bool is_argument(LOG_VAR_TYPE type) {
    return type >= LVT_VA_DOUBLE && type <= LVT_VA_QWORD;
}

// ---- One field ----

void print_formatted(const char *format, Value value, TextWriter *out) {
    const SFMT_valtprintf_param getters = {no_text, real_of, int_of, integer_of, &value};
    expand_format(*out, format != nullptr ? format : "", getters);
}

void print_text(const char *text, TextWriter *out) {
    if (text != nullptr)
        out->append(text, strlen(text));
}

void print_real(const LOG_record_var_defn *var, double value, TextWriter *out) {
    if (value == MVC && var->mvc != nullptr)
        print_text(var->mvc, out);
    else
        print_formatted(var->format, {value, to_integer(value)}, out);
}

// Each call gets a buffer of its own: a callback may count on an empty one.
void print_function(LOG_record_var_defn *var, TextWriter *out) {
    const LOG_map_defn *defn = var->defn;
    SFMT_buffer text;
    SFMT_init_buffer(&text);
    if (defn->map != nullptr && defn->map(defn->pd, var, &text))
        print_text(text.buffer, out);
    else
        print_text(var->mvc, out);
    SFMT_destroy_buffer(&text);
}

// A disabled variable prints nothing, but takes its argument all the same.
void print_field(const LOG_record_defn *record, size_t i, Arguments *args, TextWriter *out) {
    LOG_record_var_defn *var = &record->vars[i];
    const LOG_VAR_TYPE type = var->defn->type;
    if (!var->enabled && !is_argument(type))
        return;
    if (is_real(type)) {
        const double value = real_value(var->defn, args);
        if (var->enabled)
            print_real(var, value, out);
    } else if (is_integer(type)) {
        const long long value = integer_value(var->defn, args);
        if (var->enabled)
            print_formatted(var->format, {static_cast<double>(value), value}, out);
    } else if (type == LVT_FUNCTION) {
        print_function(var, out);
    } else {
        ZEB_REPORT("Unrecognized field type in record %s (%d) at index %zd", record->code,
                   static_cast<int>(type), static_cast<ssize_t>(i));
    }
}

// ---- One line ----

// The texts of a record's variables, one behind the other: a block for each would cost more time
// than all that goes into them.
class Fields {
  public:
    explicit Fields(size_t count) : ends_(static_cast<size_t *>(malloc(count * sizeof(size_t)))) {}
    ~Fields() {
        SFMT_destroy_buffer(&texts_);
        free(ends_);
    }
    Fields(const Fields &) = delete;
    Fields &operator=(const Fields &) = delete;
    bool made() const { return ends_ != nullptr; }
    bool print(const LOG_record_defn *record, Arguments *args) {
        TextWriter out(&texts_);
        for (size_t i = 0; i < record->n_vars; ++i) {
            print_field(record, i, args, &out);
            ends_[i] = out.length();
        }
        return !out.failed();
    }
    void append_to(TextWriter *line, size_t i) const {
        const size_t start = i != 0 ? ends_[i - 1] : 0;
        line->append(texts_.buffer + start, ends_[i] - start);
    }

  private:
    SFMT_buffer texts_ = {};
    size_t *ends_; // where each text ends
};

const LOG_record_defn *find_record(const LOG_file *f, const char *code) {
    for (const LL_NODE *node = f->records.head; node != nullptr; node = node->next) {
        const auto *record = static_cast<const LOG_record_defn *>(node->data);
        if (strcmp(record->code, code) == 0)
            return record;
    }
    return nullptr;
}

// Returns whether the text is there: without memory all of it is lost.
bool start_line(SFMT_buffer *line, const LOG_record_defn *record, const char *station,
                FTIME rectime) {
    const long long seconds = std::fabs(rectime) < k_latest ? static_cast<long long>(rectime) : -1;
    const UtcTime t = utc_time(seconds);
    SFMT_printf(line, "%s,%s,%u,%04d-%02u-%02uT%02u:%02u:%02uZ", record->rectype, station,
                static_cast<DWORD>(seconds), t.year, t.month, t.day, t.hour, t.minute, t.second);
    return line->buffer != nullptr;
}

// Leaves the line in the file's buffer.
void evaluate(LOG_file *f, const char *code, FTIME rectime, Arguments *args) {
    const LOG_record_defn *record = ZEB_CHECK(code != nullptr) ? find_record(f, code) : nullptr;
    if (record == nullptr || record->n_cols == 0) {
        SFMT_copystr(&f->sbfr, "");
        return;
    }
    Fields fields(record->n_vars);
    if (!ZEB_CHECK_ERRNO(fields.made()) || !fields.print(record, args) ||
        !start_line(&f->sbfr, record, f->stncode_u, rectime))
        return;
    TextWriter line(&f->sbfr);
    for (size_t i = 0; i < record->n_cols; ++i) {
        line.put(',');
        fields.append_to(&line, record->cols[i]);
    }
    line.put('\n');
}

// A pipe takes a long line in pieces.
void write_all(int fd, const char *text) {
    size_t left = strlen(text);
    do {
        const ssize_t count = write(fd, text, left);
        if (count <= 0 && !(count == -1 && errno == EINTR))
            return;
        if (count > 0) {
            text += count;
            left -= static_cast<size_t>(count);
        }
    } while (left != 0);
}

} // namespace

namespace zeb {

UtcTime utc_time(long long seconds) {
    using namespace std::chrono;
    const sys_seconds at{std::chrono::seconds(seconds)};
    const sys_days day = floor<days>(at);
    const year_month_day date(day);
    const hh_mm_ss time(at - day);
    return {static_cast<int>(date.year()),
            static_cast<unsigned>(date.month()),
            static_cast<unsigned>(date.day()),
            static_cast<unsigned>(time.hours().count()),
            static_cast<unsigned>(time.minutes().count()),
            static_cast<unsigned>(time.seconds().count())};
}

void print_value(SFMT_buffer *out, const char *format, const Value &value) {
    TextWriter writer(out);
    print_formatted(format, value, &writer);
}

} // namespace zeb

void LOG_write(LOG_file *f, INST_link *lnk, const char *code, FTIME rectime, ...) {
    Arguments args;
    va_start(args.list, rectime);
    evaluate(f, code, rectime, &args);
    va_end(args.list);
    const char *line = SFMT_get_buffer(&f->sbfr);
    if (*line == '\0')
        return;
    write_line(f, line);
    if (lnk != nullptr)
        INST_logecho(lnk, line);
}

void LOG_write_file(LOG_file *f, FILE *stream, const char *code, FTIME rectime, ...) {
    Arguments args;
    va_start(args.list, rectime);
    evaluate(f, code, rectime, &args);
    va_end(args.list);
    // The line is the format: programs have "%%" in their texts for it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    fprintf(stream, SFMT_get_buffer(&f->sbfr));
#pragma GCC diagnostic pop
}

void LOG_write_fd(LOG_file *f, int fd, const char *code, FTIME rectime, ...) {
    Arguments args;
    va_start(args.list, rectime);
    evaluate(f, code, rectime, &args);
    va_end(args.list);
    write_all(fd, SFMT_get_buffer(&f->sbfr));
}
