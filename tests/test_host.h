// A host that answers from a script and records what was shown.
#pragma once

#include "base/host.h"

#include <map>
#include <string>
#include <vector>

namespace vimbo::testing {

class ScriptedHost final : public Host {
public:
    std::map<std::string, std::size_t, std::less<>> answers; ///< by question key; else the question's default
    std::u16string picked; ///< what the file picker gives; empty: the user gives up
    std::vector<std::u16string> asked;
    std::vector<std::u16string> shown;
    std::vector<std::u16string> status;
    std::vector<double> progress;

    void ShowMessage(std::u16string_view text, std::u16string_view, MessageIcon) override
    {
        shown.emplace_back(text);
    }
    std::size_t Ask(const Question& question) override
    {
        asked.push_back(question.text);
        const auto answer = answers.find(question.key);
        return answer == answers.end() ? question.defaultButton : answer->second;
    }
    bool PickFile(std::u16string_view text, std::u16string_view, std::u16string& path) override
    {
        asked.emplace_back(text);
        path = picked;
        return !picked.empty();
    }
    void SetStatus(std::u16string_view text) override { status.emplace_back(text); }
    void SetProgress(std::u16string_view, double fraction) override { progress.push_back(fraction); }
};

} // namespace vimbo::testing
