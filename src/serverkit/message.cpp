#include "message.h"

namespace serverkit {
namespace {

// Takes fields off the front of a message and remembers when there was not enough.
class Reader {
  public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    std::string_view take(size_t count) {
        if (count > bytes_.size()) {
            short_ = true;
            count = bytes_.size();
        }
        const std::string_view field = bytes_.substr(0, count);
        bytes_.remove_prefix(count);
        return field;
    }

    std::string_view take_string() {
        const std::string_view length = take(2);
        if (short_)
            return {};
        const auto low = static_cast<unsigned char>(length[0]);
        const auto high = static_cast<unsigned char>(length[1]);
        return take(static_cast<size_t>(low | high << 8));
    }

    std::string_view rest() const { return bytes_; }
    bool ran_short() const { return short_; }

  private:
    std::string_view bytes_;
    bool short_ = false;
};

char *put_string(char *out, std::string_view text) {
    return put_bytes(put_number(out, text.size(), 2), text);
}

} // namespace

std::optional<Message> parse_message(std::string_view payload) {
    Reader reader(payload);
    Message message;
    const std::string_view flags = reader.take(4);
    if (reader.ran_short())
        return std::nullopt;
    message.flags = read_u32(flags.data());
    message.name = reader.take_string();
    message.destination = reader.take_string();
    message.source = reader.take_string();
    message.record = reader.take_string();
    message.rest = reader.rest();
    if (reader.ran_short() || message.name.empty())
        return std::nullopt;
    return message;
}

Frame frame_message(const Message &message, std::string_view source) {
    const size_t names =
        message.name.size() + message.destination.size() + source.size() + message.record.size();
    Frame frame = Frame::blank(4 + 4 * 2 + names + message.rest.size());
    if (!frame)
        return frame;
    char *out = put_number(frame.to_fill(), message.flags, 4);
    out = put_string(out, message.name);
    out = put_string(out, message.destination);
    out = put_string(out, source);
    out = put_string(out, message.record);
    put_bytes(out, message.rest);
    return frame;
}

} // namespace serverkit
