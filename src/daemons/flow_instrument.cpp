#include "flow_instrument.h"

#include <algorithm>
#include <cstdio>

namespace flow {
namespace {

constexpr double k_silence = 0.05; // s without a byte that end several lines

constexpr struct {
    char command;
    double Reading::*value;
} k_quantities[] = {{k_read_flow, &Reading::flow},
                    {k_read_pressure, &Reading::pressure},
                    {k_read_temperature, &Reading::temperature},
                    {k_read_valve, &Reading::valve}};

} // namespace

void Instrument::clear() {
    SERIALCOM_flush(line_, settings_.timeout, k_silence);
}

Outcome Instrument::read(Reading &reading) {
    Outcome worst = Outcome::answered;
    for (const auto &[command, value] : k_quantities) {
        std::string text;
        const Outcome outcome = ask(command, "", text);
        if (outcome == Outcome::answered)
            reading.*value = to_number(text).value_or(MVC);
        worst = std::max(worst, outcome);
        if (outcome >= Outcome::silent)
            break;
    }
    return worst;
}

// How many lines come is the instrument's choice, so that a silence ends them.
Identity Instrument::identify() {
    char lines[1024];
    long got = -1;
    if (write({k_question, settings_.address, k_identify, ""}))
        got = SERIALCOM_read_burst(line_, settings_.timeout, k_silence, lines, sizeof lines);
    if (got <= 0)
        return Identity();
    return parse_identity({lines, static_cast<size_t>(got)}, settings_.address);
}

Outcome Instrument::set_valve(double percent, std::string &reason) {
    char argument[32];
    snprintf(argument, sizeof argument, "%.2f", percent);
    return ask(k_set_valve, argument, reason);
}

Outcome Instrument::ask(char command, const std::string &argument, std::string &value) {
    ++asked_;
    const Outcome outcome = exchange({k_question, settings_.address, command, argument}, value);
    ++counts_[static_cast<size_t>(outcome)];
    return outcome;
}

Outcome Instrument::exchange(const Frame &question, std::string &value) {
    if (!write(question))
        return Outcome::no_line;
    char answer[k_max_line + 2];
    const long got =
        SERIALCOM_read_until(line_, &k_line_end, 1, settings_.timeout, -1.0, answer, sizeof answer);
    // A read that timed out has failed as one on a dead line has. The next read tells which: part
    // of an answer, or nothing at all, but not a failure.
    if (got < 0)
        return SERIALCOM_read_new(line_, answer, sizeof answer) < 0 ? Outcome::no_line
                                                                    : Outcome::silent;
    switch (check_answer({answer, static_cast<size_t>(got)}, question, value)) {
    case Verdict::answered:
        return Outcome::answered;
    case Verdict::refused:
        return Outcome::refused;
    default:
        return Outcome::damaged;
    }
}

bool Instrument::write(const Frame &question) {
    const std::string line = to_line(question);
    return SERIALCOM_issue_write(line_, line.data(), line.size());
}

} // namespace flow
