// The code that the pages in docs/ show is the code that is compiled and run here.
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

namespace {

const std::filesystem::path kDocs = QUORVEL_DOCS_DIR;

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Adds a page's code blocks, by the sample that the line above each one links to.
void CollectShownSamples(const std::string& page, std::map<std::string, std::string>& shown) {
    std::istringstream lines(page);
    std::string line;
    std::string linked;
    while (std::getline(lines, line)) {
        const std::size_t link = line.find("](samples/");
        if (link != std::string::npos) {
            const std::size_t name = link + std::string("](samples/").size();
            linked = line.substr(name, line.find(')', name) - name);
        } else if (line == "```cpp" || line == "```cmake") {
            EXPECT_NE(linked, "") << "a code block without a link to its sample";
            std::string code;
            while (std::getline(lines, line) && line != "```") {
                code += line + '\n';
            }
            EXPECT_TRUE(shown.emplace(linked, code).second) << linked << " is shown twice";
            linked.clear();
        }
    }
}

TEST(SamplesInDocsTest, PagesShowEverySampleAsItIsCompiled) {
    std::map<std::string, std::string> shown;
    CollectShownSamples(ReadFile(kDocs / "runtime.md"), shown);
    CollectShownSamples(ReadFile(kDocs / "logging.md"), shown);
    CollectShownSamples(ReadFile(kDocs / "embedding.md"), shown);
    const std::filesystem::path samples = kDocs / "samples";
    std::set<std::string> compiled;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(samples)) {
        if (entry.is_regular_file()) {
            compiled.insert(entry.path().lexically_relative(samples).string());
        }
    }
    EXPECT_EQ(compiled.size(), 12U);
    for (const std::string& name : compiled) {
        ASSERT_TRUE(shown.contains(name)) << name << " is not shown";
        EXPECT_EQ(shown.at(name), ReadFile(kDocs / "samples" / name)) << name;
    }
    EXPECT_EQ(shown.size(), compiled.size());
}

} // namespace
