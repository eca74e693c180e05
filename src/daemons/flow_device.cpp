#include "flow_device.h"

#include <cmath>
#include <cstdio>

namespace flow {
namespace {

constexpr double k_full_flow = 20.0;      // standard l/min with the valve open
constexpr double k_pressure = 830.0;      // hPa without flow
constexpr double k_pressure_drop = 2.5;   // hPa for each l/min
constexpr double k_temperature = 21.0;    // degC
constexpr double k_flow_sigma = 0.01;     // l/min
constexpr double k_pressure_sigma = 0.05; // hPa
constexpr double k_temperature_sigma = 0.02;

std::string decimal(double value, int digits) {
    char text[32];
    snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

} // namespace

Device::Device(const Settings &settings)
    : settings_(settings), valve_(settings.valve), flow_(flow_at(settings.valve)),
      random_(settings.seed) {}

double Device::flow_at(double valve) {
    const double x = valve / 100;
    return k_full_flow * (0.35 * x + 0.65 * x * x);
}

void Device::advance(double seconds) {
    if (seconds > 0)
        flow_ += (flow_at(valve_) - flow_) * (1 - std::exp(-seconds / settings_.time_constant));
}

void Device::receive(std::string_view bytes, const Callback &answer) {
    for (const char c : bytes) {
        if (c == k_line_end) {
            line(answer);
            pending_.clear();
        } else if (pending_.size() <= k_max_line) {
            pending_ += c;
        }
    }
}

void Device::line(const Callback &answer) {
    const auto question = parse(pending_);
    if (question && question->kind == k_question && question->address == settings_.address)
        answer_to(*question, answer);
}

void Device::answer_to(const Frame &question, const Callback &answer) {
    switch (question.command) {
    case k_read_flow:
        return say(question, k_answer, reading(flow_, k_flow_sigma), answer);
    case k_read_pressure:
        return say(question, k_answer,
                   reading(k_pressure - k_pressure_drop * flow_, k_pressure_sigma), answer);
    case k_read_temperature:
        return say(question, k_answer, reading(k_temperature, k_temperature_sigma), answer);
    case k_read_valve:
        return say(question, k_answer, decimal(valve_, 2), answer);
    case k_set_valve:
        return set_valve(question, answer);
    case k_identify:
        return identify(question, answer);
    default:
        return say(question, k_refusal, k_unknown_command, answer);
    }
}

void Device::set_valve(const Frame &reply, const Callback &answer) {
    const auto wanted = to_number(reply.value);
    if (!wanted)
        return say(reply, k_refusal, k_no_number, answer);
    if (*wanted < 0 || *wanted > 100)
        return say(reply, k_refusal, k_out_of_range, answer);
    valve_ = *wanted;
    say(reply, k_answer, decimal(valve_, 2), answer);
}

void Device::identify(const Frame &reply, const Callback &answer) {
    for (const char *property :
         {"MODEL=Simulated flow controller", "SERIAL=SIM-0001", "FIRMWARE=1.0"})
        say(reply, k_answer, property, answer);
}

void Device::say(Frame reply, char kind, const std::string &value, const Callback &answer) {
    ++answers_;
    if (settings_.mute_after != 0 && answers_ > settings_.mute_after)
        return;
    reply.kind = kind;
    reply.value = value;
    std::string line = to_line(reply);
    if (settings_.wrong_checksum_every != 0 && answers_ % settings_.wrong_checksum_every == 0)
        line[line.size() - 2] ^= 1; // whatever it is now, it is wrong
    answer(line);
}

std::string Device::reading(double value, double sigma) {
    return decimal(value + settings_.noise * sigma * deviation_(random_), 3);
}

} // namespace flow
