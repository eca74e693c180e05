// packets.h - packets, packed messages and described packages, written and read byte by byte: what
// scripted peers and expectations need, without the code under test.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zeb::test {

inline std::string u16(size_t value) {
    return {static_cast<char>(value & 0xff), static_cast<char>(value >> 8 & 0xff)};
}

inline std::string u32(size_t value) {
    return u16(value & 0xffff) + u16(value >> 16);
}

inline std::string text16(std::string_view text) {
    return u16(text.size()) + std::string(text);
}

// A packed message.
inline std::string packed(unsigned flags, std::string_view name, std::string_view destination = "",
                          std::string_view source = "", std::string_view record = "",
                          std::string_view package = "") {
    return u32(flags) + text16(name) + text16(destination) + text16(source) + text16(record) +
           std::string(package);
}

// A packet: the header and its payload.
inline std::string framed(std::string_view payload) {
    return std::string("2BEZ\x01\x01", 6) + u32(payload.size()) + std::string(payload);
}

// One field of a described package: its name, type code, and data (with its count, if any).
inline std::string field(std::string_view name, unsigned type, std::string_view data) {
    return text16(name) + u16(type) + std::string(data);
}

inline std::string package(std::string_view record, const std::vector<std::string> &fields) {
    std::string result = "\x01" + text16(record) + u16(fields.size());
    for (const std::string &one : fields)
        result += one;
    return result;
}

inline std::string handshake(std::string_view name) {
    return packed(0, "MSG_SERVER_CLIENTHANDSHAKE", "", "", "NET_SERVER_ClientHandshake",
                  package("NET_SERVER_ClientHandshake", {field("name", 28, text16(name))}));
}

inline std::string padded(std::string_view text, size_t size) {
    std::string result(text);
    result.resize(size);
    return result;
}

struct FilterText {
    bool accept = true;
    unsigned uid = 1;
    std::string source{}, destination{};
    int type = -1;
    std::string instrument_type{}, tag{}, metatype{};
};

inline std::string add_filter(const FilterText &f) {
    return packed(0, "NET_SERVER_ADDFILTER", "", "", "NET_SERVER_FilterAdd",
                  package("NET_SERVER_FilterAdd",
                          {field("dest_match", 28, text16(f.destination)),
                           field("inst_type_match", 15, u16(32) + padded(f.instrument_type, 32)),
                           field("metatype_match", 15, u16(256) + padded(f.metatype, 256)),
                           field("src_match", 28, text16(f.source)),
                           field("tag_match", 15, u16(256) + padded(f.tag, 256)),
                           field("target", 0, std::string(1, f.accept ? '\1' : '\0')),
                           field("type_match", 5, u32(static_cast<unsigned>(f.type))),
                           field("uid", 6, u32(f.uid))}));
}

inline std::string delete_filter(bool all, unsigned uid) {
    return packed(
        0, "NET_SERVER_DELETFILTER", "", "", "NET_SERVER_FilterDelete",
        package("NET_SERVER_FilterDelete",
                {field("all", 0, std::string(1, all ? '\1' : '\0')), field("uid", 6, u32(uid))}));
}

inline std::string tag_package(std::string_view tag) {
    return package("NET_SERVER_InstrumentTag", {field("tag", 28, text16(tag))});
}

// An announcement with one tag; the other seven are empty.
inline std::string announcement(std::string_view type, std::string_view tag) {
    std::string tags = u16(8) + "\x01" + u32(32);
    for (int i = 0; i < 8; ++i) {
        const std::string one = tag_package(i == 0 ? tag : "");
        tags += u32(one.size()) + one;
    }
    tags += padded(tag, 256);
    return packed(3, "MSG_SERVER_INSTRUMENTINFO", "", "", "NET_SERVER_InstrumentInfo",
                  package("NET_SERVER_InstrumentInfo",
                          {field("display_name", 28, text16("Display")), field("id_ch", 1, "A"),
                           field("tags", 29, tags), field("type", 28, text16(type))}));
}

// A packed message taken apart.
struct Received {
    unsigned flags = 0;
    std::string name, destination, source, record, rest;
};

inline size_t number_at(std::string_view bytes, size_t at, int size) {
    size_t value = 0;
    for (int i = size - 1; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes.at(at + static_cast<size_t>(i)));
    return value;
}

// Throws std::out_of_range when the message is cut short.
inline Received unpacked(std::string_view payload) {
    Received result;
    result.flags = static_cast<unsigned>(number_at(payload, 0, 4));
    size_t at = 4;
    for (std::string *text : {&result.name, &result.destination, &result.source, &result.record}) {
        const size_t length = number_at(payload, at, 2);
        if (at + 2 + length > payload.size())
            throw std::out_of_range("a message is cut short");
        *text = payload.substr(at + 2, length);
        at += 2 + length;
    }
    result.rest = payload.substr(at);
    return result;
}

} // namespace zeb::test
