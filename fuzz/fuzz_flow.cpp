// Lines of the flow controller and its daemon, either way round.
#include "fuzz.h"

#include "flow_device.h"
#include "flow_protocol.h"

#include <cmath>

namespace {

bool equal(const flow::Frame &a, const flow::Frame &b) {
    return a.kind == b.kind && a.address == b.address && a.command == b.command &&
           a.value == b.value;
}

void check_line(std::string_view text) {
    fuzz::Exactly line(text);
    const auto frame = flow::parse(line.view());
    if (frame) {
        const auto again = flow::parse(flow::to_line(*frame));
        MUST(again && equal(*frame, *again));
    }
    std::string value;
    const flow::Frame question = {flow::k_question, 1, flow::k_read_flow, ""};
    flow::check_answer(line.view(), question, value);
    if (const auto number = flow::to_number(line.view()))
        MUST(std::isfinite(*number));
    flow::parse_identity(line.view(), 1);
}

// Every answer of the device is a line that its daemon understands.
void check_device(std::string_view bytes) {
    flow::Device device({.address = 1, .wrong_checksum_every = 0});
    fuzz::Input input(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    while (!input.empty()) {
        fuzz::Exactly piece(input.block(31));
        device.receive(piece.view(), [](const std::string &answer) {
            const auto frame = flow::parse(answer);
            MUST(frame && frame->address == 1 && frame->kind != flow::k_question);
        });
        device.advance(1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    check_line(bytes);
    check_device(bytes);
    // The same with the checksum that it takes.
    unsigned sum = 0;
    for (size_t i = 0; i < size; ++i)
        sum += data[i];
    char end[8];
    snprintf(end, sizeof end, "*%02X\r", sum & 0xFFu);
    check_line(std::string(bytes) + end);
    flow::Device({.address = 1}).receive(std::string(bytes) + end, [](const std::string &) {});
    return 0;
}
