// TextList's constructors and its checked access.
#include "model/text_list.h"

#include "model/invariant.h"

namespace tarnwick {

TextList::TextList(std::initializer_list<std::string_view> texts) {
    for (std::string_view text : texts) push_back(text);
}

TextList::TextList(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) push_back(text);
}

std::string_view TextList::front() const {
    if (empty()) invariantFailed("the first text of an empty list");
    return (*this)[0];
}

}  // namespace tarnwick
