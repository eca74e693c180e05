// A log file as zebctl reads it, whatever the disk or an editor has left of it.
#include "fuzz.h"

#include "log_plot.h"
#include "log_summary.h"

namespace {

using namespace zebctl;

void check_reading(std::string_view text) {
    LogVisitor visitor;
    size_t headers = 0;
    visitor.header = [&](const LogHeader &header) {
        ++headers;
        header_text(header);
        header_json(header).dump(-1, ' ', false, Json::error_handler_t::replace);
    };
    visitor.fault = [](size_t, const std::string &what) { MUST(!what.empty()); };
    visitor.row = [&](const LogRow &row) {
        MUST(headers == 1 && row.fields.size() == row.record->columns.size());
        const auto time = parse_time(log_time(row.time));
        MUST(!time || *time == row.time);
        for (size_t i = 0; i < row.fields.size(); ++i) {
            const Json value = log_value(row, i);
            MUST(value.is_null() == row.is_missing(i));
        }
        return true;
    };
    int error = 0;
    read_log(fuzz::stream_of(text).get(), visitor, error);
    MUST(error == 0);
}

void show(std::string_view text, LogOutput &output) {
    int error = 0;
    try {
        show_log(
            fuzz::stream_of(text).get(), output, [](size_t, const std::string &) {}, error);
        output.end();
    } catch (const std::exception &what) {
        MUST(*what.what() != '\0');
    }
}

// Every line that is printed is one of JSON.
void check_json(std::string_view text) {
    char *printed = nullptr;
    size_t size = 0;
    fuzz::Stream stream(open_memstream(&printed, &size));
    show(text, *make_json_output({}, stream.get()));
    stream.reset();
    for (std::string_view rest(printed, size); !rest.empty();) {
        const size_t end = rest.find('\n');
        MUST(end != rest.npos && Json::accept(rest.substr(0, end)));
        rest.remove_prefix(end + 1);
    }
    free(printed);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const uint8_t how = input.byte();
    fuzz::Exactly bytes(input.rest());
    const std::string_view text = bytes.view();
    check_reading(text);
    LogChoice choice;
    if ((how & 1) != 0)
        choice.record = "fA";
    if ((how & 2) != 0)
        choice.columns = {"T", "P"};
    const fuzz::Stream nowhere(fopen("/dev/null", "w"));
    switch (how / 4 % 5) {
    case 0:
        return check_json(text), 0;
    case 1:
        return show(text, *make_text_output(choice, nowhere.get())), 0;
    case 2:
        return show(text, *make_csv_output(choice, nowhere.get())), 0;
    case 3: {
        LogSummary summary(choice);
        show(text, summary);
        summary.text();
        summary.json_lines();
        return 0;
    }
    default: {
        choice.columns = {"T", "P"};
        LogPlot plot(choice);
        show(text, plot);
        if (!plot.empty()) {
            plot.text({80, 24, (how & 1) != 0});
            plot.gnuplot_script("x.png");
        }
        return 0;
    }
    }
}
