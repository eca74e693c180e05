#include "text.h"

namespace zebdoc {
namespace {

bool is_item(const std::string &line) {
    const size_t digits = line.find_first_not_of("0123456789");
    return begins_with(line, "- ") ||
           (digits > 0 && digits != std::string::npos && line.compare(digits, 2, ". ") == 0);
}

bool is_rule(const std::string &line) {
    return line.find_first_not_of("|-: ") == std::string::npos;
}

// The cells of "| a | b |"; a "|" between backticks belongs to its cell.
Lines cells(const std::string &line) {
    Lines row;
    std::string cell;
    bool code = false;
    for (const char c : line.substr(1)) {
        code ^= c == '`';
        if (c != '|' || code) {
            cell += c;
            continue;
        }
        row.push_back(trim(cell));
        cell.clear();
    }
    return row;
}

class Reader {
  public:
    explicit Reader(const Lines &lines) : lines_(lines) {}

    Page read() {
        while (at_ < lines_.size())
            step();
        return page_;
    }

  private:
    void step() {
        const std::string &line = lines_[at_];
        if (begins_with(trim(line), "```"))
            code();
        else if (begins_with(line, "#"))
            heading();
        else if (begins_with(line, "|"))
            table();
        else if (trim(line).empty())
            ++at_;
        else
            text();
    }
    void heading() {
        const std::string &line = lines_[at_++];
        const size_t level = line.find_first_not_of('#');
        page_.push_back({Block::Kind::heading, trim(line.substr(level)), "", int(level)});
    }
    void code() {
        const size_t indent = lines_[at_].find('`');
        Block block{Block::Kind::code, "", trim(lines_[at_]).substr(3)};
        while (++at_ < lines_.size() && !begins_with(trim(lines_[at_]), "```"))
            block.text += (lines_[at_].size() > indent ? lines_[at_].substr(indent) : "") + "\n";
        ++at_;
        page_.push_back(block);
    }
    void table() {
        Block block{Block::Kind::table, "", ""};
        for (; at_ < lines_.size() && begins_with(lines_[at_], "|"); ++at_)
            if (!is_rule(lines_[at_]))
                block.rows.push_back(cells(lines_[at_]));
        page_.push_back(block);
    }
    void text() {
        Block block{Block::Kind::paragraph, trim(lines_[at_]), ""};
        if (is_item(lines_[at_])) {
            const size_t mark = lines_[at_].find(' ');
            block = {Block::Kind::item, trim(lines_[at_].substr(mark)),
                     lines_[at_].substr(0, mark)};
        }
        while (++at_ < lines_.size() && continues(lines_[at_]))
            block.text += " " + trim(lines_[at_]);
        page_.push_back(block);
    }
    static bool continues(const std::string &line) {
        return !trim(line).empty() && !is_item(line) && line[0] != '|' && line[0] != '#' &&
               !begins_with(trim(line), "```");
    }

    const Lines &lines_;
    size_t at_ = 0;
    Page page_;
};

} // namespace

Page read_markdown(const Lines &lines) {
    return Reader(lines).read();
}

} // namespace zebdoc
