// What gnuplot is told to draw a plot, and running it.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <spawn.h>
#include <sys/wait.h>

#include "log_plot.h"

extern char **environ;

namespace zebctl {
namespace {

constexpr size_t k_plot_height = 300; // pixels of each column

bool ends_with(const std::string &text, const std::string &end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Between single quotes gnuplot obeys nothing.
std::string quoted(const std::string &text) {
    std::string result = "'";
    for (const char c : text)
        result += c == '\'' ? "''" : std::string(1, c);
    return result + "'";
}

std::string data_block(size_t number, const PlotBins &series) {
    std::string text = "$data" + std::to_string(number) + " << EOD\n";
    for (const auto &[bin_number, bin] : series.bins()) {
        char line[128];
        snprintf(line, sizeof line, "%.1f %.17g %.17g %.17g\n",
                 (static_cast<double>(bin_number) + 0.5) * static_cast<double>(series.width()),
                 bin.min, bin.mean, bin.max);
        text += line;
    }
    return text + "EOD\n";
}

// gnuplot finds a range by itself, but warns where all values are the same.
std::string value_range(const PlotBins &series) {
    const PlotScale scale = series.scale();
    char text[96] = "set yrange [*:*]\n";
    if (scale.is_flat)
        snprintf(text, sizeof text, "set yrange [%.17g:%.17g]\n", scale.low, scale.high);
    return text;
}

std::string plot_command(size_t number, const LogColumn &column, const PlotBins &series) {
    const std::string data = "$data" + std::to_string(number);
    std::string text = "set title " + quoted(shown(column.description)) + " noenhanced\n";
    text += "set ylabel " + quoted(shown(column.label())) + " noenhanced\n";
    if (series.empty())
        return text + "set yrange [0:1]\nplot NaN notitle\n";
    return text + value_range(series) + "plot " + data +
           " using 1:2:4 with filledcurves notitle lc rgb '#a0c0e0', " + data +
           " using 1:3 with linespoints pt 7 ps 0.3 lc rgb '#204080' notitle\n";
}

} // namespace

bool is_plot_file(const std::string &file) {
    return (ends_with(file, ".png") || ends_with(file, ".svg")) &&
           std::none_of(file.begin(), file.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

std::string LogPlot::gnuplot_script(const std::string &file) const {
    const auto [begin, end] = range();
    std::string text = ends_with(file, ".svg") ? "set terminal svg" : "set terminal png";
    text += " size 1000," + std::to_string(k_plot_height * series_.size()) + "\n";
    text += "set output " + quoted(file) + "\n";
    text += "set xdata time\nset timefmt '%s'\nset format x \"%Y-%m-%d\\n%H:%M:%S\"\n";
    text += "set xrange ['" + std::to_string(begin) + "':'" + std::to_string(end) + "']\n";
    text += "set grid\n";
    for (size_t i = 0; i < series_.size(); ++i)
        text += data_block(i, series_[i]);
    text += "set multiplot layout " + std::to_string(series_.size()) + ",1\n";
    for (size_t i = 0; i < series_.size(); ++i)
        text += plot_command(i, columns()[i], series_[i]);
    return text + "unset multiplot\nunset output\n";
}

bool run_gnuplot(const std::string &script, std::string &error) {
    // A file, not a pipe: gnuplot may end before it has read all.
    const std::unique_ptr<FILE, int (*)(FILE *)> input(tmpfile(), fclose);
    if (input == nullptr || fwrite(script.data(), 1, script.size(), input.get()) != script.size() ||
        fflush(input.get()) != 0) {
        error = std::string("a temporary file: ") + strerror(errno);
        return false;
    }
    rewind(input.get());
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(input.get()), 0);
    char name[] = "gnuplot";
    char *arguments[] = {name, nullptr};
    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, name, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        error = failure == ENOENT
                    ? "gnuplot, which draws to a file, is not installed; without a file the plot "
                      "is drawn on the terminal"
                    : std::string("gnuplot: ") + strerror(failure);
        return false;
    }
    int status = -1;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR)
        continue;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        error = "gnuplot failed";
    return error.empty();
}

} // namespace zebctl
