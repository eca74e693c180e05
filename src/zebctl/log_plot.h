// log_plot.h - columns of log files over the time, drawn with characters or by gnuplot.
#pragma once

#include "log_output.h"

namespace zebctl {

// The values of one stretch of time.
struct PlotBin {
    size_t count = 0;
    double min = 0, mean = 0, max = 0;
    void add(double value);
    void add(const PlotBin &other);
};

// The range of values that a plot shows. One value only stands in the middle.
struct PlotScale {
    double low, high;
    bool is_flat; // all values are the same
};

// Values in stretches of equal length, which doubles when there are too many: any number of lines
// fits.
class PlotBins {
  public:
    static constexpr size_t k_most = 4096;
    void add(int64_t time, double value);
    int64_t width() const { return width_; } // s
    // By their number: each begins at that many widths after 1970.
    const std::map<int64_t, PlotBin> &bins() const { return bins_; }
    bool empty() const { return bins_.empty(); }
    int64_t begin() const { return bins_.begin()->first * width_; }
    int64_t end() const { return (bins_.rbegin()->first + 1) * width_; }
    PlotScale scale() const;

  private:
    void widen();
    int64_t width_ = 1;
    std::map<int64_t, PlotBin> bins_;
};

class LogPlot : public OneRecord {
  public:
    using OneRecord::OneRecord;
    void row(const LogRow &row) override;

    struct Look {
        size_t width = 80, height = 24; // of the terminal
        bool braille = true;            // else ASCII
    };
    std::string text(const Look &look) const;

    // What gnuplot draws it from. The file's name ends with .png or .svg.
    std::string gnuplot_script(const std::string &file) const;
    // No column has a number.
    bool empty() const;

  protected:
    std::vector<std::string> names(const LogRecord &) const override { return choice().columns; }

  private:
    std::pair<int64_t, int64_t> range() const;
    std::vector<PlotBins> series_;
};

// Whether the file's name is one that gnuplot can be asked for.
bool is_plot_file(const std::string &file);

// Runs gnuplot. False with a reason, such as that it is not installed.
bool run_gnuplot(const std::string &script, std::string &error);

} // namespace zebctl
