#include "log_plot.h"

#include <algorithm>
#include <cmath>

#include "text.h"

namespace zebctl {
namespace {

constexpr size_t k_most_width = 1000, k_least_plot = 10, k_least_rows = 4, k_most_rows = 16;

// ---- A grid of dots ----

// Dots in cells of 2 by 4, as braille has them; ASCII has one for a cell.
class Canvas {
  public:
    Canvas(size_t columns, size_t rows) : columns_(columns), rows_(rows), cells_(columns * rows) {}

    size_t width() const { return columns_ * 2; }
    size_t height() const { return rows_ * 4; }

    // y counts from below.
    void set(size_t x, size_t y) {
        constexpr unsigned dots[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
        const size_t from_above = height() - 1 - y;
        cells_[from_above / 4 * columns_ + x / 2] |= dots[from_above % 4][x % 2];
    }

    std::string row(size_t row, bool braille) const {
        std::string text;
        for (size_t i = 0; i < columns_; ++i)
            text += character(cells_[row * columns_ + i], braille);
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    }

  private:
    static std::string character(unsigned dots, bool braille) {
        if (dots == 0)
            return " ";
        if (!braille)
            return "*";
        // U+2800 and the dots, in UTF-8.
        return {'\xE2', static_cast<char>(0xA0 | dots >> 6), static_cast<char>(0x80 | (dots & 63))};
    }

    size_t columns_, rows_;
    std::vector<unsigned> cells_;
};

// ---- The axes ----

// 0 to 1; halved, since the difference of two doubles may be none.
double share(double value, const PlotScale &scale) {
    return std::clamp((value / 2 - scale.low / 2) / (scale.high / 2 - scale.low / 2), 0.0, 1.0);
}

size_t dot(double share, size_t count) {
    return std::min(count - 1, static_cast<size_t>(share * static_cast<double>(count)));
}

std::string figure(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.5g", value);
    return text;
}

void draw(const PlotBins &series, const PlotScale &scale, std::pair<int64_t, int64_t> range,
          Canvas &canvas) {
    const auto length = static_cast<double>(range.second - range.first);
    for (const auto &[number, bin] : series.bins()) {
        const double middle =
            (static_cast<double>(number) + 0.5) * static_cast<double>(series.width()) -
            static_cast<double>(range.first);
        const size_t x = dot(std::clamp(middle / length, 0.0, 1.0), canvas.width());
        const size_t high = dot(share(bin.max, scale), canvas.height());
        for (size_t y = dot(share(bin.min, scale), canvas.height()); y <= high; ++y)
            canvas.set(x, y);
    }
}

std::string time_axis(std::pair<int64_t, int64_t> range, size_t margin, size_t columns) {
    const std::string first = log_time(range.first), last = log_time(range.second);
    std::string text(margin, ' ');
    text += first;
    const size_t used = first.size() + last.size();
    text += std::string(used < columns ? columns - used : 1, ' ') + last;
    return text + "\n";
}

std::string plot_text(const LogColumn &column, const PlotBins &series, const LogPlot::Look &look,
                      std::pair<int64_t, int64_t> range, size_t rows) {
    std::string text = bold(shown(column.label())) + "  " + shown(column.description) + "\n";
    if (series.empty())
        return text + "no numbers\n";
    const PlotScale scale = series.scale();
    std::vector<std::string> labels(rows);
    labels[0] = figure(scale.high);
    labels[(rows - 1) / 2] = figure(scale.low / 2 + scale.high / 2);
    labels[rows - 1] = figure(scale.low);
    size_t margin = 0;
    for (const std::string &label : labels)
        margin = std::max(margin, label.size());
    const size_t width = std::min(look.width, k_most_width);
    Canvas canvas(std::max(k_least_plot, width - std::min(width, margin + 2)), rows);
    draw(series, scale, range, canvas);
    for (size_t i = 0; i < rows; ++i)
        text += std::string(margin - labels[i].size(), ' ') + labels[i] +
                (look.braille ? " \u2502" : " |") + canvas.row(i, look.braille) + "\n";
    return text + time_axis(range, margin + 2, canvas.width() / 2);
}

} // namespace

// ---- Bins ----

void PlotBin::add(double value) {
    add(PlotBin{1, value, value, value});
}

void PlotBin::add(const PlotBin &other) {
    if (other.count == 0)
        return;
    min = count == 0 ? other.min : std::min(min, other.min);
    max = count == 0 ? other.max : std::max(max, other.max);
    count += other.count;
    const double weight = static_cast<double>(other.count) / static_cast<double>(count);
    mean = mean * (1 - weight) + other.mean * weight;
}

PlotScale PlotBins::scale() const {
    PlotScale scale = {HUGE_VAL, -HUGE_VAL, false};
    for (const auto &[number, bin] : bins_) {
        scale.low = std::min(scale.low, bin.min);
        scale.high = std::max(scale.high, bin.max);
    }
    scale.is_flat = scale.low == scale.high;
    if (scale.is_flat) {
        const double margin = scale.low == 0 ? 1 : std::fabs(scale.low) / 10;
        scale.low -= margin;
        scale.high += margin;
    }
    return scale;
}

void PlotBins::add(int64_t time, double value) {
    const auto number = [&] { return time / width_ - (time % width_ < 0 ? 1 : 0); };
    bins_[number()].add(value);
    while (static_cast<uint64_t>(bins_.rbegin()->first - bins_.begin()->first) >= k_most)
        widen();
}

void PlotBins::widen() {
    std::map<int64_t, PlotBin> wider;
    for (const auto &[number, bin] : bins_)
        wider[number / 2 - (number % 2 < 0 ? 1 : 0)].add(bin);
    bins_ = std::move(wider);
    width_ *= 2;
}

// ---- The plot ----

void LogPlot::row(const LogRow &row) {
    series_.resize(columns().size());
    for (size_t i = 0; i < series_.size(); ++i) {
        if (places()[i] == k_absent)
            continue;
        const auto value = row.number(places()[i]);
        if (value && std::isfinite(*value))
            series_[i].add(row.time, *value);
    }
}

bool LogPlot::empty() const {
    return std::all_of(series_.begin(), series_.end(),
                       [](const PlotBins &series) { return series.empty(); });
}

// All columns have the same axis of time.
std::pair<int64_t, int64_t> LogPlot::range() const {
    std::pair<int64_t, int64_t> range = {INT64_MAX, INT64_MIN};
    for (const PlotBins &series : series_) {
        if (series.empty())
            continue;
        range.first = std::min(range.first, series.begin());
        range.second = std::max(range.second, series.end());
    }
    return range;
}

std::string LogPlot::text(const Look &look) const {
    if (empty())
        return "";
    // Each plot has two lines beside its rows, and the prompt follows.
    const size_t lines = look.height / series_.size();
    const size_t rows = std::clamp(lines > 3 ? lines - 3 : 0, k_least_rows, k_most_rows);
    std::string text;
    for (size_t i = 0; i < series_.size(); ++i)
        text += plot_text(columns()[i], series_[i], look, range(), rows);
    return text;
}

} // namespace zebctl
