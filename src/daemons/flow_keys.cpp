#include "flow_keys.h"

#include "serverkit/settings.h"
#include "serverkit/station_keys.h"

namespace flow {
namespace {

using namespace serverkit;

std::optional<std::string> fault_of_input(const std::string &value) {
    for (const Quantity &quantity : k_quantities)
        if (value == quantity.channel)
            return std::nullopt;
    return "flow, pressure, temperature, valve or setpoint";
}

std::optional<std::string> fault_of_output(const std::string &value) {
    return value == "setpoint" ? std::nullopt : std::optional("setpoint");
}

double gain_of(const Settings &settings) {
    return parse_number(settings.usable(settings.own("PID;P"))).value_or(0);
}

Default least_integral(const Settings &settings) {
    return {gain_of(settings) > 0 ? "0" : ""};
}

// An integral that asks for more than an open valve only delays the way back.
Default most_integral(const Settings &settings) {
    const double gain = gain_of(settings);
    return {gain > 0 ? std::to_string(100 / gain) : ""};
}

constexpr Key term(const char *path, const char *standard, const char *meaning) {
    return library(number(path, standard, -HUGE_VAL, HUGE_VAL, meaning));
}

constexpr Key k_table[] = {
    line_key("the controller's line: = and a name of the serial server's ports, or a device such "
             "as ttyS0:9600n81"),
    count("@;Address", "1", 0, 99, "address of the controller"),
    seconds("@;Interval", "1", 0.05, 3600, "seconds between readings"),
    seconds("@;Timeout", "0.5", 0.01, 60, "seconds to wait for an answer"),
    number("@;Setpoint", "", 0, HUGE_VAL,
           "flow to hold from the start, in standard l/min; none leaves the valve alone"),
    number("@;MaxFlow", "20", 0, HUGE_VAL, "highest set point, in standard l/min"),
    text("@;DisplayName", "Flow", "name for people"),
    text("@;ID", "Q", "one character that stands for the instrument")};

// The library's defaults are a controller without gains and limits.
constexpr Key k_control_table[] = {
    number("@;PID;P", "3", -HUGE_VAL, HUGE_VAL, "gain in % of the valve for each l/min"),
    term("@;PID;P;min", "0", "least output of the controller, in %"),
    term("@;PID;P;max", "100", "highest output of the controller, in %"),
    term("@;PID;I", "2", "integral time in seconds; 0 for none"),
    derived(term("@;PID;I;min", "", "least integral term, in l/min; 0 with a gain above 0"),
            least_integral),
    derived(term("@;PID;I;max", "", "highest integral term, in l/min; 100 divided by the gain"),
            most_integral),
    term("@;PID;D", "0", "derivative time in seconds; 0 for none"),
    term("@;PID;D;min", "", "least derivative term, in l/min; none for no limit"),
    term("@;PID;D;max", "", "highest derivative term, in l/min; none for no limit"),
    truth("@;PID;Inverse", "false", "whether opening the valve lowers the flow"),
    polynomial("@;PID;cal;PV", "coefficients from the flow as read to the flow that is held"),
    polynomial("@;PID;cal;Out", "coefficients from the output to the opening of the valve")};

constexpr Key k_variable_table[] = {
    library(tested(text("@;analog;*;chan", "",
                        "what this variable and column reads: flow, pressure, temperature, valve "
                        "or setpoint"),
                   fault_of_input)),
    polynomial("@;analog;*;cal", "coefficients of this variable's calibration"),
    library(
        tested(text("@;output;*;chan", "", "what this variable sets: setpoint"), fault_of_output)),
    polynomial("@;output;*;cal", "coefficients from this variable to standard l/min"),
    library(text("@;record;A", "*", "columns of the averages, between \";\"; * for all")),
    library(text("@;record;M", "*", "columns of the monitor's record, between \";\"; * for all"))};

// Without a word in the file every quantity is a variable, Q_flow and so on, and Set_flow is what
// others set. Two instruments have two names, so that their variables have, too.
void provide_variables(Settings &settings) {
    settings.provide(settings.own("fil;name"));
    const std::string suffix = settings.written(settings.own("fil;name"));
    if (CONF_lookup_tree(settings.root(), settings.own("analog").c_str()) == nullptr)
        for (const Quantity &quantity : k_quantities)
            settings.provide(settings.own("analog;" + (quantity.prefix + suffix) + ";chan"),
                             quantity.channel);
    if (CONF_lookup_tree(settings.root(), settings.own("output").c_str()) == nullptr)
        settings.provide(settings.own("output;Set_" + suffix + ";chan"), "setpoint");
}

void read(Settings &settings) {
    for (const Key &key : k_control_table)
        settings.provide(settings.own(key.path + 2)); // behind "@;"
    // The controller reads its gain by itself: a faulty one gives way to the default that was said.
    const std::string gain = settings.own("PID;P");
    CONF_set(settings.root(), gain.c_str(), settings.text(gain).c_str());
    provide_variables(settings);
    for (const char *key : {"Address", "Interval", "Timeout"})
        settings.number(settings.own(key));
    const double most = settings.number(settings.own("MaxFlow"));
    const double setpoint = settings.number(settings.own("Setpoint"));
    if (setpoint != MVC && setpoint > most)
        settings.refuse(settings.own("Setpoint"), settings.written(settings.own("Setpoint")),
                        "within " + settings.own("MaxFlow"));
}

} // namespace

const ProgramKeys k_keys = {"flow",
                            {k_table, k_control_table, k_variable_table, k_average_keys,
                             k_tags_keys, k_directory_keys, k_log_keys, k_link_keys},
                            read};

} // namespace flow
