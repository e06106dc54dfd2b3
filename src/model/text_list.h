// TextList: texts in order, kept in one buffer.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick {

// A list of texts stored end to end in one buffer, with where each one ends. A
// browser window holds hundreds of tabs and the menu's listing reads thousands
// of them: as separate strings each would be an allocation and a free.
class TextList {
public:
    class const_iterator {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = std::string_view;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = std::string_view;

        const_iterator() = default;
        std::string_view operator*() const { return (*list_)[index_]; }
        std::string_view operator[](difference_type n) const { return (*list_)[index_ + static_cast<size_t>(n)]; }
        const_iterator& operator++() { return ++index_, *this; }
        const_iterator operator++(int) { return {list_, index_++}; }
        const_iterator& operator--() { return --index_, *this; }
        const_iterator operator--(int) { return {list_, index_--}; }
        const_iterator& operator+=(difference_type n) { return index_ += static_cast<size_t>(n), *this; }
        const_iterator& operator-=(difference_type n) { return index_ -= static_cast<size_t>(n), *this; }
        friend const_iterator operator+(const_iterator i, difference_type n) { return i += n; }
        friend const_iterator operator+(difference_type n, const_iterator i) { return i += n; }
        friend const_iterator operator-(const_iterator i, difference_type n) { return i -= n; }
        friend difference_type operator-(const_iterator a, const_iterator b) {
            return static_cast<difference_type>(a.index_) - static_cast<difference_type>(b.index_);
        }
        friend bool operator==(const_iterator a, const_iterator b) { return a.index_ == b.index_; }
        friend auto operator<=>(const_iterator a, const_iterator b) { return a.index_ <=> b.index_; }

    private:
        friend class TextList;
        const_iterator(const TextList* list, size_t index) : list_(list), index_(index) {}
        const TextList* list_ = nullptr;
        size_t index_ = 0;
    };
    using iterator = const_iterator;
    using value_type = std::string_view;
    using size_type = size_t;

    TextList() = default;
    TextList(std::initializer_list<std::string_view> texts);
    explicit TextList(const std::vector<std::string>& texts);

    size_t size() const { return ends_.size(); }
    bool empty() const { return ends_.empty(); }
    std::string_view operator[](size_t i) const {
        size_t start = i == 0 ? 0 : ends_[i - 1];
        return std::string_view(bytes_).substr(start, ends_[i] - start);
    }
    // The first text; the list must not be empty.
    std::string_view front() const;
    const_iterator begin() const { return {this, 0}; }
    const_iterator end() const { return {this, size()}; }

    void push_back(std::string_view text) {
        bytes_.append(text);
        ends_.push_back(bytes_.size());
    }
    // Room for `texts` more texts of `bytes` bytes in all.
    void reserve(size_t texts, size_t bytes) {
        ends_.reserve(ends_.size() + texts);
        bytes_.reserve(bytes_.size() + bytes);
    }
    // Every text, in order, as strings of its own.
    std::vector<std::string> strings() const { return std::vector<std::string>(begin(), end()); }

    // The same texts in the same order: the same bytes ending at the same places.
    bool operator==(const TextList&) const = default;

private:
    std::string bytes_;
    std::vector<size_t> ends_;
};

}  // namespace tarnwick
