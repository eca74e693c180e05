#include "records.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace zebmsgd {
namespace {

struct FreeBlock {
    void operator()(void *block) const { free(block); }
};

// Reads the record that is attached to a message. Stricter than the library, which takes a message
// whose package cannot be read for one of missing values: a filter or a name must not be made of
// those. The library's own catalogue describes these records, whatever a station adds.
template <typename Record>
std::optional<Record> read_record(std::string_view payload, const char *type) {
    const auto message = parse_message(payload);
    if (!message || message->record != type)
        return std::nullopt;
    std::optional<Record> record(std::in_place);
    if (NETPACK_unpack_ds_lib(message->rest.data(), message->rest.size(), &*record, sizeof(Record),
                              type) == 0)
        return std::nullopt;
    return record;
}

Frame make_frame(NETMSG_type type, const char *source, void *record, size_t size,
                 const char *record_name) {
    NETPACK_message message{};
    message.type = type;
    message.src_name = const_cast<char *>(source);
    message.pds = record;
    message.sz_ds = size;
    message.ds_name = const_cast<char *>(record_name);
    size_t length = 0;
    const std::unique_ptr<void, FreeBlock> payload(NETPACK_package_message_lib(&message, &length));
    return payload ? Frame::of_payload({static_cast<const char *>(payload.get()), length})
                   : Frame();
}

} // namespace

std::optional<std::string> read_handshake(std::string_view payload) {
    const auto record =
        read_record<NET_SERVER_ClientHandshake>(payload, "NET_SERVER_ClientHandshake");
    return record ? std::optional(field_text(record->name)) : std::nullopt;
}

std::optional<NET_SERVER_FilterAdd> read_filter_add(std::string_view payload) {
    return read_record<NET_SERVER_FilterAdd>(payload, "NET_SERVER_FilterAdd");
}

std::optional<NET_SERVER_FilterDelete> read_filter_delete(std::string_view payload) {
    return read_record<NET_SERVER_FilterDelete>(payload, "NET_SERVER_FilterDelete");
}

std::optional<Announcement> read_announcement(std::string_view payload) {
    const auto record =
        read_record<NET_SERVER_InstrumentInfo>(payload, "NET_SERVER_InstrumentInfo");
    if (!record)
        return std::nullopt;
    Announcement announced;
    announced.made = true;
    announced.type = field_text(record->type);
    announced.display_name = field_text(record->display_name);
    if (record->id_ch != '\0')
        announced.id = std::string(1, record->id_ch);
    for (const NET_SERVER_InstrumentTag &tag : record->tags)
        if (tag.tag[0] != '\0')
            announced.tags.push_back(field_text(tag.tag));
    return announced;
}

Frame make_server_handshake(unsigned index) {
    NET_SERVER_ServerHandshake record{index};
    return make_frame(MSG_SERVER_SERVERHANDSHAKE, "", &record, sizeof record,
                      "NET_SERVER_ServerHandshake");
}

Frame make_heartbeat(unsigned index) {
    NET_SERVER_Heartbeat record{index};
    return make_frame(MSG_SERVER_HEARTBEAT, "", &record, sizeof record, "NET_SERVER_Heartbeat");
}

Frame make_terminate() {
    return make_frame(MSG_SERVER_TERMINATE, "", nullptr, 0, nullptr);
}

Frame make_client_left(const std::string &name) {
    return make_frame(MSG_NOTIFY_CLIENT_TERMINATE, name.c_str(), nullptr, 0, nullptr);
}

} // namespace zebmsgd
