// AppKind text forms and the bundle-identifier table behind classify().
#include "model/app_kind.h"

#include <array>
#include <utility>

namespace tarnwick {

namespace {

constexpr std::array<std::pair<AppKind, std::string_view>, 6> kTextForms{{
    {AppKind::generic, "generic"},
    {AppKind::chromium, "chromium"},
    {AppKind::safari, "safari"},
    {AppKind::finder, "finder"},
    {AppKind::terminal, "terminal"},
    {AppKind::iterm, "iterm"},
}};

// Whole identifiers only: a canary or dev channel of a browser is not listed on
// purpose, since its scripting dictionary has not been checked.
constexpr std::array<std::pair<std::string_view, AppKind>, 10> kScriptable{{
    {"com.apple.Safari", AppKind::safari},
    {"com.apple.finder", AppKind::finder},
    {"com.apple.Terminal", AppKind::terminal},
    {"com.googlecode.iterm2", AppKind::iterm},
    {"com.google.Chrome", AppKind::chromium},
    {"com.google.Chrome.beta", AppKind::chromium},
    {"com.brave.Browser", AppKind::chromium},
    {"com.microsoft.edgemac", AppKind::chromium},
    {"company.thebrowser.Browser", AppKind::chromium},
    {"com.vivaldi.Vivaldi", AppKind::chromium},
}};

}  // namespace

std::string_view toString(AppKind kind) {
    for (const auto& [k, text] : kTextForms)
        if (k == kind) return text;
    return "generic";
}

std::optional<AppKind> appKindFrom(std::string_view text) {
    for (const auto& [k, form] : kTextForms)
        if (form == text) return k;
    return std::nullopt;
}

AppKind classify(const std::optional<std::string>& bundleID) {
    if (!bundleID) return AppKind::generic;
    for (const auto& [id, kind] : kScriptable)
        if (id == *bundleID) return kind;
    return AppKind::generic;
}

}  // namespace tarnwick
