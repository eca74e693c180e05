#include "netpack_int.h"

#include "diag.h"

#include <cerrno>

namespace zeb::netpack {
namespace {

bool is_named(const char *name) {
    return name != nullptr && *name != '\0';
}

const char *or_text(const char *name, const char *replacement) {
    return name != nullptr ? name : replacement;
}

// Names and an address as the settled lines print them.
const char *or_null(const char *name) {
    return or_text(name, "NULL");
}
const char *or_none(const char *name) {
    return is_named(name) ? name : "NONE";
}
unsigned long address(const void *block) {
    return reinterpret_cast<unsigned long>(block);
}

bool has_attachment(const NETPACK_message &message) {
    return message.pds != nullptr && message.sz_ds != 0 && is_named(message.ds_name);
}

bool has_part_of_attachment(const NETPACK_message &message) {
    return message.pds != nullptr || message.sz_ds != 0 || is_named(message.ds_name);
}

// What every message of the type carries must be there, and nothing else.
bool fits_definition(const NETPACK_message &message, const NETMSG_entry &definition) {
    if (definition.ds_tie == nullptr)
        return !has_attachment(message);
    return has_attachment(message) && strcmp(message.ds_name, definition.ds_tie) == 0;
}

bool prepare_attachment(const Catalogue &catalogue, const NETPACK_message &in,
                        const NETMSG_entry &definition, Packing *packing) {
    if (packing->prepare(catalogue, in.pds, in.ds_name, in.sz_ds) && packing->size() > 0)
        return true;
    ZEB_REPORT("Unable to package attached data structure (%s - %zu @ 0x%08lX) for message %s: "
               "\"%s\" -> \"%s\"",
               in.ds_name, in.sz_ds, address(in.pds), definition.name, or_null(in.src_name),
               or_null(in.dest_name));
    return false;
}

bool name_fits(const char *name) {
    const size_t size = name == nullptr ? 0 : strlen(name);
    if (size > k_max_name)
        ZEB_REPORT("A name of %zu bytes is too long for a message", size);
    return size <= k_max_name;
}

size_t name_size(const char *name) {
    return name == nullptr ? 0 : strlen(name);
}

char *write_name(char *to, const char *name) {
    const size_t size = name_size(name);
    const auto length = static_cast<uint16_t>(size);
    memcpy(to, &length, sizeof length);
    if (size > 0)
        memcpy(to + sizeof length, name, size);
    return to + sizeof length + size;
}

// `packing` is null for a message that goes without its attachment. The total still counts the
// structure's name then: that many zero bytes trail, which receivers report as garbage.
void *write_message(const NETPACK_message &in, const NETMSG_entry &definition,
                    const Packing *packing, size_t *out_size) {
    const size_t package_size = packing == nullptr ? 0 : packing->size();
    const size_t size = sizeof in.flags + 4 * sizeof(uint16_t) + strlen(definition.name) +
                        name_size(in.dest_name) + name_size(in.src_name) + name_size(in.ds_name) +
                        package_size;
    char *message = static_cast<char *>(malloc(size + k_write_slack));
    if (!ZEB_CHECK_ERRNO(message != nullptr))
        return nullptr;
    char *to = message;
    memcpy(to, &in.flags, sizeof in.flags);
    to = write_name(to + sizeof in.flags, definition.name);
    to = write_name(to, in.dest_name);
    to = write_name(to, in.src_name);
    to = write_name(to, packing == nullptr ? nullptr : in.ds_name);
    if (packing != nullptr)
        packing->write(to);
    else
        memset(to, 0, static_cast<size_t>(message + size - to));
    *out_size = size;
    return message;
}

// Takes a message apart; what is not known yet prints as "UNDEFINED".
class MessageReader {
  public:
    MessageReader(const Catalogue &catalogue, Reader reader, NETPACK_message &out)
        : catalogue_(catalogue), reader_(reader), out_(out) {}

    bool read();

  private:
    bool read_type();
    bool read_name(char **name);
    bool check_tie(const char *name);
    bool read_attachment();
    bool out_of_data();

    const Catalogue &catalogue_;
    Reader reader_;
    NETPACK_message &out_;
    const NETMSG_entry *definition_ = nullptr;
};

bool MessageReader::out_of_data() {
    ZEB_REPORT("Message %s: \"%s\" -> \"%s\", ran out of data permaturely",
               definition_ == nullptr ? "UNDEFINED" : definition_->name,
               or_text(out_.src_name, "UNDEFINED"), or_text(out_.dest_name, "UNDEFINED"));
    return false;
}

bool MessageReader::read() {
    if (!reader_.read(&out_.flags))
        return out_of_data();
    if (!read_type() || !read_name(&out_.dest_name) || !read_name(&out_.src_name) ||
        !read_name(&out_.ds_name) || !check_tie(out_.ds_name))
        return false;
    if (out_.ds_name != nullptr && !read_attachment())
        return false;
    if (reader_.remaining() > 0)
        ZEB_REPORT("Trailing garbage on message %s \"%s\" -> \"%s\", %u bytes", definition_->name,
                   or_null(out_.src_name), or_null(out_.dest_name),
                   static_cast<unsigned>(reader_.remaining()));
    return true;
}

bool MessageReader::read_type() {
    std::string_view name;
    if (!reader_.read_text(&name))
        return out_of_data();
    if (name.empty()) {
        ZEB_REPORT("No message name specified, invalid packet!");
        return false;
    }
    definition_ = find_message(catalogue_, name);
    if (definition_ == nullptr) {
        ZEB_REPORT("Unable to find local type for message type %.*s", static_cast<int>(name.size()),
                   name.data());
        return false;
    }
    out_.type = definition_->msg;
    return true;
}

bool MessageReader::read_name(char **name) {
    std::string_view text;
    if (!reader_.read_text(&text))
        return out_of_data();
    if (text.empty())
        return true;
    *name = static_cast<char *>(malloc(text.size() + 1));
    if (!ZEB_CHECK_ERRNO(*name != nullptr))
        return false;
    memcpy(*name, text.data(), text.size());
    (*name)[text.size()] = '\0';
    return true;
}

bool MessageReader::check_tie(const char *name) {
    const char *tie = definition_->ds_tie;
    if (name == nullptr ? tie == nullptr : tie != nullptr && strcmp(name, tie) == 0)
        return true;
    ZEB_REPORT("Mismatch on expected local data structure for message %s \"%s\" -> \"%s\"; "
               "expected %s, got %s: message discarded",
               definition_->name, or_none(out_.src_name), or_none(out_.dest_name), or_none(tie),
               or_none(name));
    return false;
}

bool MessageReader::read_attachment() {
    const NETDSD_entry *entry = find_structure(catalogue_, out_.ds_name);
    if (entry == nullptr) {
        ZEB_REPORT("Unable to find local structure description for %s; message %s \"%s\" -> \"%s\"",
                   out_.ds_name, definition_->name, or_null(out_.src_name),
                   or_null(out_.dest_name));
        return false;
    }
    if (reader_.remaining() == 0)
        return true;
    out_.pds = calloc(1, entry->total_size + 1);
    if (!ZEB_CHECK_ERRNO(out_.pds != nullptr))
        return false;
    out_.sz_ds = entry->total_size;
    const size_t consumed = unpack_ds(catalogue_, reader_.at(), reader_.remaining(), out_.pds,
                                      out_.sz_ds, out_.ds_name);
    // A package without a usable description counts as long as the record, however short it is.
    reader_.take(consumed < reader_.remaining() ? consumed : reader_.remaining());
    return true;
}

} // namespace

void *package_message(const Catalogue &catalogue, const NETPACK_message *in, size_t *out_size) {
    if (!ZEB_CHECK(out_size != nullptr))
        return nullptr;
    *out_size = 0;
    if (!ZEB_CHECK(in != nullptr))
        return nullptr;
    const NETMSG_entry *definition = find_message(catalogue, in->type);
    if (definition == nullptr) {
        ZEB_REPORT("Unable to find a message definition for type %d (message \"%s\" -> \"%s\" "
                   "(%s - %zu @ 0x%08lX)",
                   static_cast<int>(in->type), or_null(in->src_name), or_null(in->dest_name),
                   or_null(in->ds_name), in->sz_ds, address(in->pds));
        return nullptr;
    }
    if (!fits_definition(*in, *definition)) {
        ZEB_REPORT("Message %s (%s:%s) \"%s\" -> \"%s\" (%zu @ 0x%08lX) is inconistant with the "
                   "global message definition",
                   definition->name, or_none(in->ds_name), or_none(definition->ds_tie),
                   or_null(in->src_name), or_null(in->dest_name), in->sz_ds, address(in->pds));
        return nullptr;
    }
    if (!name_fits(definition->name) || !name_fits(in->dest_name) || !name_fits(in->src_name) ||
        !name_fits(in->ds_name))
        return nullptr;
    Packing packing;
    if (has_attachment(*in))
        return prepare_attachment(catalogue, *in, *definition, &packing)
                   ? write_message(*in, *definition, &packing, out_size)
                   : nullptr;
    if (has_part_of_attachment(*in))
        ZEB_REPORT("WARNING: Message %s (%s) \"%s\" -> \"%s\" (%zu @ 0x%08lX) is in an "
                   "inconsistant state with respect to its attachment, sending without any",
                   definition->name, or_null(in->ds_name), or_null(in->src_name),
                   or_null(in->dest_name), in->sz_ds, address(in->pds));
    return write_message(*in, *definition, nullptr, out_size);
}

bool unpack_message(const Catalogue &catalogue, const void *msg, size_t size,
                    NETPACK_message *out) {
    if (!ZEB_CHECK(out != nullptr))
        return false;
    memset(out, 0, sizeof *out);
    if (!ZEB_CHECK(msg != nullptr))
        return false;
    if (MessageReader(catalogue, Reader(msg, size), *out).read())
        return true;
    NETPACK_msg_free(out);
    return false;
}

} // namespace zeb::netpack

namespace {

using namespace zeb::netpack;

// Without room for a copy a message would be lost unnoticed; the process ends instead.
void *copy_or_exit(const void *from, size_t size) {
    void *copy = malloc(size);
    if (!ZEB_CHECK_ERRNO(copy != nullptr))
        exit(-1);
    memcpy(copy, from, size);
    return copy;
}

char *copy_name(const char *name) {
    return is_named(name) ? static_cast<char *>(copy_or_exit(name, strlen(name) + 1)) : nullptr;
}

} // namespace

void NETPACK_msg_free(NETPACK_message *msg) {
    if (!ZEB_CHECK(msg != nullptr))
        return;
    free(msg->dest_name);
    free(msg->src_name);
    free(msg->pds);
    free(msg->ds_name);
    msg->dest_name = nullptr;
    msg->src_name = nullptr;
    msg->pds = nullptr;
    msg->ds_name = nullptr;
    msg->sz_ds = 0;
}

void NETPACK_msg_copy(const NETPACK_message *src, NETPACK_message *dest) {
    if (!ZEB_CHECK(src != nullptr))
        return;
    NETPACK_msg_copy_from_parameters_int(dest, src->type, src->flags, src->dest_name, src->src_name,
                                         src->pds, src->sz_ds, src->ds_name);
}

void NETPACK_msg_copy_from_parameters_int(NETPACK_message *dest, NETMSG_type type, DWORD flags,
                                          const char *dest_name, const char *src_name,
                                          const void *pds, size_t sz_ds, const char *ds_name) {
    if (!ZEB_CHECK(dest != nullptr))
        return;
    NETPACK_message copy = {};
    copy.type = type;
    copy.flags = flags;
    copy.dest_name = copy_name(dest_name);
    copy.src_name = copy_name(src_name);
    if (pds != nullptr && sz_ds != 0 && is_named(ds_name)) {
        copy.pds = copy_or_exit(pds, sz_ds);
        copy.sz_ds = sz_ds;
        copy.ds_name = copy_name(ds_name);
    } else if (pds != nullptr || sz_ds != 0 || is_named(ds_name)) {
        ZEB_REPORT("WARNING: Source of copy %d (%s) \"%s\" -> \"%s\" (%zu @ 0x%08lX) in a "
                   "inconsistent state with respect to its attachment",
                   static_cast<int>(type), or_null(ds_name), or_null(src_name), or_null(dest_name),
                   sz_ds, address(pds));
    }
    *dest = copy;
}
