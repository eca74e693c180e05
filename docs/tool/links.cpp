#include "text.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

namespace fs = std::filesystem;

namespace zebdoc {
namespace {

std::string content(const fs::path &file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

// The values of an attribute in a text, such as href="...".
std::set<std::string> values(const std::string &text, const std::string &attribute) {
    std::set<std::string> all;
    const std::string start = " " + attribute + "=\"";
    for (size_t at = 0; (at = text.find(start, at)) != std::string::npos;) {
        at += start.size();
        all.insert(text.substr(at, text.find('"', at) - at));
    }
    return all;
}

class Checker {
  public:
    bool check(const fs::path &directory) {
        for (const auto &entry : fs::recursive_directory_iterator(directory))
            if (entry.path().extension() == ".html")
                page(entry.path());
        return !broken_;
    }

  private:
    const std::set<std::string> &anchors(const fs::path &file) {
        auto [found, fresh] = anchors_.try_emplace(file.string());
        if (fresh) {
            const std::string text = content(file);
            found->second = values(text, "id");
            found->second.merge(values(text, "name"));
        }
        return found->second;
    }
    void page(const fs::path &file) {
        const std::string text = content(file);
        for (const std::string &target : values(text, "href"))
            link(file, target);
        for (const std::string &target : values(text, "src"))
            link(file, target);
    }
    void link(const fs::path &page, const std::string &target) {
        if (target.find(':') != std::string::npos || target.empty() || target == "#")
            return;
        const size_t hash = target.find('#');
        const fs::path file = hash == 0 ? page : page.parent_path() / target.substr(0, hash);
        const bool found = fs::exists(file) &&
                           (hash == std::string::npos ||
                            anchors(file.lexically_normal()).count(target.substr(hash + 1)) > 0);
        if (found)
            return;
        std::cerr << page.string() << ": link to " << target << " leads to nothing\n";
        broken_ = true;
    }

    std::map<std::string, std::set<std::string>> anchors_;
    bool broken_ = false;
};

} // namespace

bool check_links(const std::string &directory) {
    return Checker().check(directory);
}

} // namespace zebdoc
