// HIServices' Accessibility API (AXUIElement.h, AXValue.h, AXError.h and the
// attribute, role and action constants), with the SDK's exact types.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// AXError.h
typedef CF_ENUM(SInt32, AXError){
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,
    kAXErrorIllegalArgument = -25201,
    kAXErrorInvalidUIElement = -25202,
    kAXErrorInvalidUIElementObserver = -25203,
    kAXErrorCannotComplete = -25204,
    kAXErrorAttributeUnsupported = -25205,
    kAXErrorActionUnsupported = -25206,
    kAXErrorNotificationUnsupported = -25207,
    kAXErrorNotImplemented = -25208,
    kAXErrorNotificationAlreadyRegistered = -25209,
    kAXErrorNotificationNotRegistered = -25210,
    kAXErrorAPIDisabled = -25211,
    kAXErrorNoValue = -25212,
    kAXErrorParameterizedAttributeUnsupported = -25213,
    kAXErrorNotEnoughPrecision = -25214,
};

CF_ASSUME_NONNULL_BEGIN

// AXValue.h
typedef CF_ENUM(UInt32, AXValueType){
    kAXValueTypeCGPoint = 1,
    kAXValueTypeCGSize = 2,
    kAXValueTypeCGRect = 3,
    kAXValueTypeCFRange = 4,
    kAXValueTypeAXError = 5,
    kAXValueTypeIllegal = 0,
};
// The legacy names are plain UInt32 constants, not AXValueType: passing one
// where an AXValueType is expected does not compile in C++.
static const UInt32 kAXValueCGPointType = kAXValueTypeCGPoint;
static const UInt32 kAXValueCGSizeType = kAXValueTypeCGSize;
static const UInt32 kAXValueCGRectType = kAXValueTypeCGRect;
static const UInt32 kAXValueCFRangeType = kAXValueTypeCFRange;
static const UInt32 kAXValueAXErrorType = kAXValueTypeAXError;
static const UInt32 kAXValueIllegalType = kAXValueTypeIllegal;
typedef const struct CF_BRIDGED_TYPE(id) __AXValue* AXValueRef;
extern CFTypeID AXValueGetTypeID();
extern AXValueRef _Nullable AXValueCreate(AXValueType theType, const void* valuePtr);
extern AXValueType AXValueGetType(AXValueRef value);
extern Boolean AXValueGetValue(AXValueRef value, AXValueType theType, void* valuePtr);

// AXUIElement.h. Darwin's <sys/cdefs.h> turns the SDK's __nullable and
// __nonnull into these qualifiers; glibc gives those names another meaning.
typedef const struct CF_BRIDGED_TYPE(id) __AXUIElement* AXUIElementRef;
extern Boolean AXIsProcessTrusted(void);
extern Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef _Nullable options);
extern CFStringRef kAXTrustedCheckOptionPrompt;
extern CFTypeID AXUIElementGetTypeID(void);
extern AXUIElementRef AXUIElementCreateApplication(pid_t pid);
extern AXUIElementRef AXUIElementCreateSystemWide(void);
extern AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds);
extern AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                             CFTypeRef _Nullable* _Nonnull CF_RETURNS_RETAINED value);
extern AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef value);
extern AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef attribute, Boolean* settable);
extern AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action);
extern AXError AXUIElementGetPid(AXUIElementRef element, pid_t* pid);

CF_ASSUME_NONNULL_END

// AXAttributeConstants.h, AXRoleConstants.h, AXActionConstants.h: macros, not variables.
#define kAXWindowsAttribute CFSTR("AXWindows")
#define kAXSubroleAttribute CFSTR("AXSubrole")
#define kAXRoleAttribute CFSTR("AXRole")
#define kAXTitleAttribute CFSTR("AXTitle")
#define kAXDocumentAttribute CFSTR("AXDocument")
#define kAXPositionAttribute CFSTR("AXPosition")
#define kAXSizeAttribute CFSTR("AXSize")
#define kAXMinimizedAttribute CFSTR("AXMinimized")
#define kAXMainAttribute CFSTR("AXMain")
#define kAXMainWindowAttribute CFSTR("AXMainWindow")
#define kAXFocusedWindowAttribute CFSTR("AXFocusedWindow")
#define kAXFrontmostAttribute CFSTR("AXFrontmost")
#define kAXHiddenAttribute CFSTR("AXHidden")
#define kAXFullScreenButtonAttribute CFSTR("AXFullScreenButton")
#define kAXStandardWindowSubrole CFSTR("AXStandardWindow")
#define kAXDialogSubrole CFSTR("AXDialog")
#define kAXFloatingWindowSubrole CFSTR("AXFloatingWindow")
#define kAXWindowRole CFSTR("AXWindow")
#define kAXRaiseAction CFSTR("AXRaise")

#ifdef __cplusplus
}
#endif
