#include "log_int.h"

#include "diag.h"
#include "util.h"
#include "util_int.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace zeb;

namespace {

constexpr char k_column_separators[] = "; \t\n";
constexpr size_t k_column_name_size = 64;
constexpr int k_rectype_length = 62;

// A text built in a buffer that is released with the scope.
struct Text {
    Text() { SFMT_init_buffer(&buffer); }
    ~Text() { SFMT_destroy_buffer(&buffer); }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    const char *get() { return SFMT_get_buffer(&buffer); }
    SFMT_buffer buffer;
};

// ---- One variable ----

char *copy_text(const char *text) {
    if (text == nullptr)
        return nullptr;
    char *copy = strdup(text);
    ZEB_CHECK_ERRNO(copy != nullptr);
    return copy;
}

bool is_enabled(const char *value) {
    return value == nullptr || reads_as_true(value);
}

bool is_real(LOG_VAR_TYPE type) {
    return (type >= LVT_AVG_SHIFTING && type <= LVT_MVC) || type == LVT_VA_DOUBLE ||
           type == LVT_FUNCTION;
}

// What the format makes of a missing value. A format for text, as that of a function may be, asks
// for a text and gets an empty one.
char *missing_text(const char *format) {
    Text text;
    print_value(&text.buffer, format, {MVC, 0});
    return *text.get() != '\0' ? copy_text(text.get()) : nullptr;
}

void set_up_variable(LOG_record_var_defn *var, CONF_node *conf) {
    var->enabled = is_enabled(CONF_lookup(conf, "enable"));
    const char *format = CONF_lookup(conf, "format");
    var->format = copy_text(format != nullptr ? format : var->defn->format);
    const char *mvc = CONF_lookup(conf, "mvc");
    var->mvc = copy_text(mvc != nullptr ? mvc : var->defn->defmvc);
    if (var->mvc == nullptr && var->format != nullptr && is_real(var->defn->type))
        var->mvc = missing_text(var->format);
}

// The name of its column.
char *header_name(const char *name, const char *file, bool prefixnames) {
    if (file == nullptr || (!prefixnames && strchr(name, '_') != nullptr))
        return copy_text(name);
    Text text;
    SFMT_printf(&text.buffer, "%s_%s", name, file);
    return copy_text(text.get());
}

// ---- The variables of a record ----

size_t count_rows(const LOG_map_defn *lmd) {
    size_t count = 0;
    while (lmd[count].type != LVT_END)
        ++count;
    return count;
}

bool define_variables(LOG_record_defn *record, const LOG_map_defn *lmd, CONF_node *local,
                      const char *file, bool prefixnames) {
    record->n_vars = count_rows(lmd);
    record->vars =
        static_cast<LOG_record_var_defn *>(calloc(record->n_vars, sizeof(LOG_record_var_defn)));
    if (!ZEB_CHECK_ERRNO(record->vars != nullptr))
        return false;
    for (size_t i = 0; i < record->n_vars; ++i) {
        LOG_record_var_defn *var = &record->vars[i];
        var->defn = &lmd[i];
        if (lmd[i].name == nullptr) {
            ZEB_REPORT("Un-named variable at index %zd in defintion of %s", static_cast<ssize_t>(i),
                       record->code);
            continue;
        }
        var->hdrname = header_name(lmd[i].name, file, prefixnames);
        if (var->hdrname != nullptr)
            set_up_variable(var, CONF_lookup_tree_va(local, "var", var->hdrname, nullptr));
    }
    return true;
}

// ---- The columns of a record ----

bool is_named(const LOG_record_var_defn &var, const char *name) {
    return (var.hdrname != nullptr && strcmp(var.hdrname, name) == 0) ||
           (var.defn->name != nullptr && strcmp(var.defn->name, name) == 0);
}

void add_column(LOG_record_defn *record, const char *name) {
    size_t i = 0;
    while (i < record->n_vars && !is_named(record->vars[i], name))
        ++i;
    if (i == record->n_vars)
        ZEB_REPORT("Record defintion for %s referencing an undefined variable %s", record->code,
                   name);
    else if (record->vars[i].enabled)
        record->cols[record->n_cols++] = i;
}

void add_every_column(LOG_record_defn *record) {
    for (size_t i = 0; i < record->n_vars; ++i) {
        if (record->vars[i].enabled)
            record->cols[record->n_cols++] = i;
    }
}

void add_listed_columns(LOG_record_defn *record, const char *list) {
    char name[k_column_name_size];
    for (int i = 0; UTIL_stringfield_consec(list, k_column_separators, i, name, sizeof name); ++i) {
        if (name[0] != '\0')
            add_column(record, name);
    }
}

// No list has more fields than every other character of it.
size_t most_columns(const LOG_record_defn *record, const char *list) {
    return std::max(record->n_vars, strlen(list) / 2 + 1);
}

bool define_columns(LOG_record_defn *record, const char *list) {
    if (list[0] == '\0')
        return true;
    record->cols = static_cast<size_t *>(calloc(most_columns(record, list), sizeof(size_t)));
    if (!ZEB_CHECK_ERRNO(record->cols != nullptr))
        return false;
    if (strcmp(list, "*") == 0)
        add_every_column(record);
    else
        add_listed_columns(record, list);
    return true;
}

// ---- The header lines of a record ----

const LOG_record_var_defn *column(const LOG_record_defn *record, size_t i) {
    return &record->vars[record->cols[i]];
}

// One of the lines that describe the columns: its beginning, then a text for each.
void insert_row_header(LOG_file *f, const LOG_record_defn *record, const char *key,
                       const char *leading, char *LOG_record_var_defn::*text) {
    Text line;
    SFMT_printf(&line.buffer, "!row;%s;%s,%s;%s", key, record->rectype, record->rectype, leading);
    for (size_t i = 0; i < record->n_cols; ++i) {
        const char *value = column(record, i)->*text;
        SFMT_printfcat(&line.buffer, ";%s", value != nullptr ? value : "");
    }
    // Without memory its beginning is lost.
    if (*line.get() == '!')
        insert_header(f, line.get());
}

void insert_description(LOG_file *f, const LOG_record_var_defn *var) {
    if (var->defn->desc == nullptr)
        return;
    Text line;
    SFMT_printf(&line.buffer, "!var;%s;FieldDesc,%s", var->hdrname, var->defn->desc);
    insert_header(f, line.buffer.buffer);
}

void insert_further_headers(LOG_file *f, LOG_record_var_defn *var) {
    if (var->defn->gethdrs == nullptr)
        return;
    for (size_t i = 0;; ++i) {
        Text line;
        if (!var->defn->gethdrs(var->defn->pdhdr, i, var, &line.buffer))
            return;
        insert_header(f, line.buffer.buffer);
    }
}

void insert_record_headers(LOG_file *f, const LOG_record_defn *record) {
    insert_row_header(f, record, "colhdr", "STN;EPOCH;DateTime", &LOG_record_var_defn::hdrname);
    insert_row_header(f, record, "mvc", "ZZZ;0;9999-99-99T99:99:99Z", &LOG_record_var_defn::mvc);
    insert_row_header(f, record, "varfmt", "%s;%u;%04d-%02d-%02dT%02d:%02d:%02dZ",
                      &LOG_record_var_defn::format);
    for (size_t i = 0; i < record->n_cols; ++i)
        insert_description(f, column(record, i));
    for (size_t i = 0; i < record->n_cols; ++i)
        insert_further_headers(f, &record->vars[record->cols[i]]);
}

void name_record(LOG_record_defn *record, const char *code, const char *file) {
    UTIL_strncpynt(record->code, code, sizeof record->code);
    snprintf(record->rectype, k_rectype_length + 1, "%s%s", file != nullptr ? file : "",
             record->code);
}

} // namespace

namespace zeb {

void free_record(LOG_record_defn *record) {
    for (size_t i = 0; record->vars != nullptr && i < record->n_vars; ++i) {
        free(record->vars[i].format);
        free(record->vars[i].mvc);
        free(record->vars[i].hdrname);
    }
    free(record->vars);
    free(record->cols);
}

} // namespace zeb

void LOG_define_record(LOG_file *f, const char *code, const char *lrd, const LOG_map_defn *lmd,
                       CONF_node *local, BOOL prefixnames) {
    if (lmd == nullptr || lmd->type == LVT_END || !ZEB_CHECK(code != nullptr))
        return;
    const char *file = CONF_lookup(local, "fil;name");
    LOG_record_defn record = {};
    name_record(&record, code, file);
    const char *configured = CONF_lookup_va(local, "record", code, nullptr);
    const char *list = configured != nullptr ? configured : lrd;
    if (list == nullptr)
        return;
    if (!define_variables(&record, lmd, local, file, prefixnames) ||
        !define_columns(&record, list)) {
        free_record(&record);
        return;
    }
    if (record.n_cols != 0)
        insert_record_headers(f, &record);
    if (LL_insert_tail(&f->records, &record, sizeof record) == nullptr)
        free_record(&record);
}
