// package_show.h - a package's record as JSON, or line by line for people.
#pragma once

#include <string>
#include <vector>

#include "package_reader.h"

namespace zebctl {

// Appends the record as a JSON object of its fields, in the form of record_json.h. The
// bytes of what nothing describes become a list.
class PackageJson : public PackageVisitor {
  public:
    // types: the fields' types ("DOUBLE[7]") in place of their values.
    explicit PackageJson(std::string &out, bool types = false) : out_(out), types_(types) {}

    void begin_record(std::string_view structure) override;
    void end_record() override { close(); }
    void begin_field(const PackageField &field) override;
    void end_field() override;
    void numbers(const PackageField &field, const char *elements) override;
    void text(std::string_view text) override;
    void opaque(std::string_view bytes) override;

    // After a failure: makes what was appended a whole value.
    void finish();

  private:
    struct Open {
        PackageField field;
        bool is_list = false;
        size_t elements = 0;
        bool shown = true; // of the types, only the first element's
    };
    bool shows() const { return fields_.empty() || fields_.back().shown; }
    void open(char bracket);
    void close();
    void separate();

    std::string &out_;
    bool types_;
    std::string closers_;
    std::vector<Open> fields_;
};

// Appends a line for each field: name, type and value; nested records are indented.
class PackageText : public PackageVisitor {
  public:
    explicit PackageText(std::string &out) : out_(out) {}

    void begin_record(std::string_view structure) override;
    void end_record() override { depth_ -= steps(); }
    void begin_field(const PackageField &field) override;
    void end_field() override { elements_.pop_back(); }
    void numbers(const PackageField &field, const char *elements) override;
    void text(std::string_view text) override;
    void opaque(std::string_view bytes) override;

  private:
    void line();
    size_t steps() const;

    std::string &out_;
    size_t depth_ = 0;
    std::vector<std::pair<size_t, size_t>> elements_; // of each open field: count, seen
};

// As a JSON text, in quotes.
void append_json_text(std::string &out, std::string_view text);
// "00FF".
void append_hex(std::string &out, std::string_view bytes);

} // namespace zebctl
