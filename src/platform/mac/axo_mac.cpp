// The window half of the macOS backend, bound to HIServices' Accessibility calls.
#include "platform/mac/axo_mac.h"

#include <ApplicationServices/ApplicationServices.h>
#include <dlfcn.h>

#include <memory>
#include <utility>

#if !defined(__APPLE__)
#error "axo_mac.cpp is for macOS"
#endif

namespace tarnwick::AXMac {

namespace {

// Owns one CF reference (Create or Copy rule) and releases it once.
template <class Ref>
class CFOwned {
public:
    explicit CFOwned(Ref ref = nullptr) : ref_(ref) {}
    ~CFOwned() {
        if (ref_ != nullptr) CFRelease(ref_);
    }
    CFOwned(const CFOwned&) = delete;
    CFOwned& operator=(const CFOwned&) = delete;

    Ref get() const { return ref_; }
    // Gives up ownership, for a caller that takes over the release.
    Ref release() { return std::exchange(ref_, nullptr); }
    explicit operator bool() const { return ref_ != nullptr; }

private:
    Ref ref_;
};

// An element handle that owns one reference to `element` (already retained).
Element adopt(AXUIElementRef element) {
    if (element == nullptr) return Element();
    return Element(std::shared_ptr<const void>(element, [](const void* ref) { CFRelease(ref); }));
}

AXUIElementRef ref(const Element& element) { return static_cast<AXUIElementRef>(element.get()); }

CFOwned<CFStringRef> cfString(const std::string& text) {
    return CFOwned<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

std::string utf8(CFStringRef text) {
    if (const char* direct = CFStringGetCStringPtr(text, kCFStringEncodingUTF8)) return direct;
    CFIndex capacity = CFStringGetMaximumSizeForEncoding(CFStringGetLength(text), kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<size_t>(capacity), '\0');
    if (!CFStringGetCString(text, buffer.data(), capacity, kCFStringEncodingUTF8)) return {};
    buffer.resize(std::char_traits<char>::length(buffer.c_str()));
    return buffer;
}

// An array of elements, or nothing when any entry is something else.
std::optional<std::vector<Element>> elements(CFArrayRef array) {
    std::vector<Element> list;
    CFIndex count = CFArrayGetCount(array);
    for (CFIndex i = 0; i < count; ++i) {
        auto entry = static_cast<CFTypeRef>(CFArrayGetValueAtIndex(array, i));
        if (entry == nullptr || CFGetTypeID(entry) != AXUIElementGetTypeID()) return std::nullopt;
        list.push_back(adopt(static_cast<AXUIElementRef>(CFRetain(entry))));
    }
    return list;
}

AttrValue convert(CFTypeRef value) {
    CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID()) return utf8(static_cast<CFStringRef>(value));
    if (type == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0;
    if (type == AXValueGetTypeID()) {
        auto axValue = static_cast<AXValueRef>(value);
        CGPoint point;
        if (AXValueGetValue(axValue, kAXValueTypeCGPoint, &point)) return Point{point.x, point.y};
        CGSize size;
        if (AXValueGetValue(axValue, kAXValueTypeCGSize, &size)) return Size{size.width, size.height};
        return OtherValue{};
    }
    if (type == CFArrayGetTypeID()) {
        if (auto list = elements(static_cast<CFArrayRef>(value))) return std::move(*list);
    }
    return OtherValue{};
}

// The value to write, made in the form Accessibility takes; nothing for the
// kinds Tarnwick never writes.
CFOwned<CFTypeRef> cfValue(const AttrValue& value) {
    if (auto* flag = std::get_if<bool>(&value))
        return CFOwned<CFTypeRef>(CFRetain(*flag ? kCFBooleanTrue : kCFBooleanFalse));
    if (auto* point = std::get_if<Point>(&value)) {
        CGPoint cg{point->x, point->y};
        return CFOwned<CFTypeRef>(AXValueCreate(kAXValueTypeCGPoint, &cg));
    }
    if (auto* size = std::get_if<Size>(&value)) {
        CGSize cg{size->width, size->height};
        return CFOwned<CFTypeRef>(AXValueCreate(kAXValueTypeCGSize, &cg));
    }
    if (auto* text = std::get_if<std::string>(&value)) return CFOwned<CFTypeRef>(cfString(*text).release());
    return CFOwned<CFTypeRef>();
}

using CreateWithRemoteToken = AXUIElementRef (*)(CFDataRef);

// HACK: the remote-token lookup is private to HIServices and may vanish in a
// later system, so it is looked up at run time and simply not used when absent.
CreateWithRemoteToken remoteTokenLookup() {
    static const auto lookup =
        reinterpret_cast<CreateWithRemoteToken>(dlsym(RTLD_DEFAULT, "_AXUIElementCreateWithRemoteToken"));
    return lookup;
}

}  // namespace

bool trusted() { return AXIsProcessTrusted() != 0; }

void promptForTrust() {
    const void* keys[] = {kAXTrustedCheckOptionPrompt};
    const void* values[] = {kCFBooleanTrue};
    CFOwned<CFDictionaryRef> options(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1,
                                                        &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks));
    AXIsProcessTrustedWithOptions(options.get());
}

Element application(std::int32_t pid) { return adopt(AXUIElementCreateApplication(pid)); }

void setMessagingTimeout(const Element& element, float seconds) {
    if (element) AXUIElementSetMessagingTimeout(ref(element), seconds);
}

std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) {
    if (!element) return std::nullopt;
    CFOwned<CFStringRef> attribute = cfString(name);
    if (!attribute) return std::nullopt;
    CFTypeRef raw = nullptr;
    AXError error = AXUIElementCopyAttributeValue(ref(element), attribute.get(), &raw);
    CFOwned<CFTypeRef> value(raw);
    if (error != kAXErrorSuccess || !value) return std::nullopt;
    return convert(value.get());
}

void setAttribute(const Element& element, const std::string& name, const AttrValue& value) {
    if (!element) return;
    CFOwned<CFStringRef> attribute = cfString(name);
    CFOwned<CFTypeRef> written = cfValue(value);
    if (!attribute || !written) return;
    AXUIElementSetAttributeValue(ref(element), attribute.get(), written.get());
}

Element elementForRemoteToken(const RemoteToken& token) {
    CreateWithRemoteToken lookup = remoteTokenLookup();
    if (lookup == nullptr) return Element();
    CFOwned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, token.data(), static_cast<CFIndex>(token.size())));
    if (!data) return Element();
    return adopt(lookup(data.get()));
}

bool sameElement(const Element& a, const Element& b) {
    if (!a || !b) return false;
    return CFEqual(ref(a), ref(b)) != 0;
}

}  // namespace tarnwick::AXMac
