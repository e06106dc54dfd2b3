// AppKit declarations used by Tarnwick's macOS files, with the SDK's exact types.
#pragma once

#include <Foundation/Foundation.h>
#include <sys/types.h>

#define APPKIT_EXTERN FOUNDATION_EXPORT

NS_ASSUME_NONNULL_BEGIN

@class NSMenu, NSImage, NSApplication;

@protocol NSUserInterfaceValidations
@end
@protocol NSMenuItemValidation <NSObject>
@end
@protocol NSAccessibilityElement <NSObject>
@end
@protocol NSAccessibility <NSObject>
@end
@protocol NSUserInterfaceItemIdentification
@end
@protocol NSAppearanceCustomization <NSObject>
@end
@protocol NSValidatedUserInterfaceItem
@end

@interface NSResponder : NSObject <NSCoding>
@end
@interface NSView : NSResponder
@end
@interface NSControl : NSView
@end
@interface NSButton : NSControl
@property (nullable, strong) NSImage* image;
@property (copy) NSString* title;
@end

// NSCell.h
typedef NSInteger NSControlStateValue NS_TYPED_EXTENSIBLE_ENUM;
static const NSControlStateValue NSControlStateValueMixed = -1;
static const NSControlStateValue NSControlStateValueOff = 0;
static const NSControlStateValue NSControlStateValueOn = 1;

// NSRunningApplication.h
typedef NS_OPTIONS(NSUInteger, NSApplicationActivationOptions){
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps = 1 << 1,
};
typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy){
    NSApplicationActivationPolicyRegular,
    NSApplicationActivationPolicyAccessory,
    NSApplicationActivationPolicyProhibited,
};
API_AVAILABLE(macos(10.6))
@interface NSRunningApplication : NSObject
@property (readonly, getter=isTerminated) BOOL terminated;
@property (readonly, getter=isFinishedLaunching) BOOL finishedLaunching;
@property (readonly, getter=isHidden) BOOL hidden;
@property (readonly, getter=isActive) BOOL active;
@property (readonly) NSApplicationActivationPolicy activationPolicy;
@property (readonly) pid_t processIdentifier;
@property (nullable, readonly, copy) NSString* localizedName;
@property (nullable, readonly, copy) NSString* bundleIdentifier;
@property (nullable, readonly, copy) NSURL* bundleURL;
@property (nullable, readonly, copy) NSURL* executableURL;
@property (nullable, readonly, copy) NSDate* launchDate;
- (BOOL)hide;
- (BOOL)unhide;
- (BOOL)terminate;
- (BOOL)forceTerminate;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
+ (NSArray<NSRunningApplication*>*)runningApplicationsWithBundleIdentifier:(NSString*)bundleIdentifier;
+ (nullable instancetype)runningApplicationWithProcessIdentifier:(pid_t)pid;
@property (class, readonly, strong) __kindof NSRunningApplication* currentApplication;
@end

// NSApplication.h
typedef NSInteger NSModalResponse NS_TYPED_EXTENSIBLE_ENUM;
typedef NS_ENUM(NSUInteger, NSApplicationTerminateReply){
    NSTerminateCancel = 0,
    NSTerminateNow = 1,
    NSTerminateLater = 2,
};
@protocol NSApplicationDelegate <NSObject>
@optional
- (void)applicationDidFinishLaunching:(NSNotification*)notification;
- (void)applicationWillTerminate:(NSNotification*)notification;
- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)sender;
@end
@interface NSApplication : NSResponder <NSUserInterfaceValidations, NSMenuItemValidation, NSAccessibilityElement, NSAccessibility>
@property (class, readonly, strong) __kindof NSApplication* sharedApplication;
@property (nullable, weak) id<NSApplicationDelegate> delegate;
- (void)activateIgnoringOtherApps:(BOOL)flag;
- (void)run;
- (void)stop:(nullable id)sender;
- (void)terminate:(nullable id)sender;
@property (nullable, strong) NSMenu* mainMenu;
- (NSApplicationActivationPolicy)activationPolicy API_AVAILABLE(macos(10.6));
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy API_AVAILABLE(macos(10.6));
@end
APPKIT_EXTERN __kindof NSApplication* _Null_unspecified NSApp;
APPKIT_EXTERN int NSApplicationMain(int argc, const char* _Nonnull argv[_Nonnull]);

// NSWorkspace.h
API_AVAILABLE(macos(10.15))
@interface NSWorkspaceOpenConfiguration : NSObject <NSCopying>
+ (instancetype)configuration;
@property BOOL promptsUserIfNeeded;
@property BOOL addsToRecentItems;
@property BOOL activates;
@property BOOL hides;
@property BOOL createsNewApplicationInstance;
@property (copy) NSArray<NSString*>* arguments;
@end
@interface NSWorkspace : NSObject
@property (class, readonly, strong) NSWorkspace* sharedWorkspace;
@property (readonly, strong) NSNotificationCenter* notificationCenter;
- (BOOL)openURL:(NSURL*)url;
- (void)openURLs:(NSArray<NSURL*>*)urls
    withApplicationAtURL:(NSURL*)applicationURL
           configuration:(NSWorkspaceOpenConfiguration*)configuration
       completionHandler:(void (^_Nullable)(NSRunningApplication* _Nullable app,
                                            NSError* _Nullable error))completionHandler API_AVAILABLE(macos(10.15));
- (void)openApplicationAtURL:(NSURL*)applicationURL
               configuration:(NSWorkspaceOpenConfiguration*)configuration
           completionHandler:(void (^_Nullable)(NSRunningApplication* _Nullable app,
                                                NSError* _Nullable error))completionHandler API_AVAILABLE(macos(10.15));
- (void)activateFileViewerSelectingURLs:(NSArray<NSURL*>*)fileURLs API_AVAILABLE(macos(10.6));
- (nullable NSURL*)URLForApplicationWithBundleIdentifier:(NSString*)bundleIdentifier API_AVAILABLE(macos(10.6));
@property (nullable, readonly, strong) NSRunningApplication* frontmostApplication API_AVAILABLE(macos(10.7));
@end
@interface NSWorkspace (NSWorkspaceRunningApplications)
@property (readonly, copy) NSArray<NSRunningApplication*>* runningApplications API_AVAILABLE(macos(10.6));
@end
APPKIT_EXTERN NSNotificationName const NSWorkspaceWillPowerOffNotification;
APPKIT_EXTERN NSNotificationName NSWorkspaceDidLaunchApplicationNotification;
APPKIT_EXTERN NSNotificationName NSWorkspaceDidTerminateApplicationNotification;
APPKIT_EXTERN NSString* const NSWorkspaceApplicationKey API_AVAILABLE(macos(10.6));

// NSImage.h
@interface NSImage : NSObject <NSCopying, NSSecureCoding>
+ (nullable instancetype)imageWithSystemSymbolName:(NSString*)name
                          accessibilityDescription:(nullable NSString*)description API_AVAILABLE(macos(11.0));
// "template" is a keyword in Objective-C++, so only the accessors are usable there.
#if defined(__cplusplus)
- (BOOL)isTemplate API_AVAILABLE(macos(10.5));
- (void)setTemplate:(BOOL)isTemplate API_AVAILABLE(macos(10.5));
#else
@property (getter=isTemplate) BOOL template API_AVAILABLE(macos(10.5));
#endif
@end

// NSMenu.h, NSMenuItem.h
@class NSMenuItem;
@protocol NSMenuDelegate <NSObject>
@optional
- (void)menuNeedsUpdate:(NSMenu*)menu;
- (void)menuWillOpen:(NSMenu*)menu API_AVAILABLE(macos(10.5));
- (void)menuDidClose:(NSMenu*)menu API_AVAILABLE(macos(10.5));
@end
@interface NSMenu : NSObject <NSCopying, NSCoding, NSUserInterfaceItemIdentification, NSAppearanceCustomization, NSAccessibilityElement, NSAccessibility>
- (instancetype)initWithTitle:(NSString*)title NS_DESIGNATED_INITIALIZER;
- (void)insertItem:(NSMenuItem*)newItem atIndex:(NSInteger)index;
- (void)addItem:(NSMenuItem*)newItem;
- (void)removeItem:(NSMenuItem*)item;
- (void)setSubmenu:(nullable NSMenu*)menu forItem:(NSMenuItem*)item;
- (void)removeAllItems API_AVAILABLE(macos(10.6));
@property (copy) NSArray<NSMenuItem*>* itemArray;
@property (readonly) NSInteger numberOfItems;
@property BOOL autoenablesItems;
@property (nullable, weak) id<NSMenuDelegate> delegate;
@end
@interface NSMenuItem : NSObject <NSCopying, NSCoding, NSValidatedUserInterfaceItem, NSUserInterfaceItemIdentification, NSAccessibilityElement, NSAccessibility>
+ (NSMenuItem*)separatorItem;
- (instancetype)initWithTitle:(NSString*)string
                       action:(nullable SEL)selector
                keyEquivalent:(NSString*)charCode NS_DESIGNATED_INITIALIZER;
@property (nullable, strong) NSMenu* submenu;
@property (readonly) BOOL hasSubmenu;
@property (copy) NSString* title;
@property (getter=isSeparatorItem, readonly) BOOL separatorItem;
@property (nullable, strong) NSImage* image;
@property NSControlStateValue state;
@property (getter=isEnabled) BOOL enabled;
@property (nullable, weak) id target;
@property (nullable) SEL action;
@property NSInteger tag;
@property (nullable, strong) id representedObject;
@property (nullable, copy) NSString* toolTip;
@property (getter=isHidden) BOOL hidden API_AVAILABLE(macos(10.5));
@end

// NSStatusBar.h, NSStatusItem.h, NSStatusBarButton.h
static const CGFloat NSVariableStatusItemLength = -1.0;
static const CGFloat NSSquareStatusItemLength = -2.0;
API_AVAILABLE(macos(10.10))
@interface NSStatusBarButton : NSButton
@property BOOL appearsDisabled;
@end
@interface NSStatusItem : NSObject
@property (nullable, strong) NSMenu* menu;
@property (nullable, readonly, strong) NSStatusBarButton* button API_AVAILABLE(macos(10.10));
@property CGFloat length;
@end
@interface NSStatusBar : NSObject
@property (class, readonly, strong) NSStatusBar* systemStatusBar;
- (NSStatusItem*)statusItemWithLength:(CGFloat)length;
- (void)removeStatusItem:(NSStatusItem*)item;
@end

// NSAlert.h
typedef NS_ENUM(NSUInteger, NSAlertStyle){
    NSAlertStyleWarning = 0,
    NSAlertStyleInformational = 1,
    NSAlertStyleCritical = 2,
};
static const NSModalResponse NSAlertFirstButtonReturn = 1000;
static const NSModalResponse NSAlertSecondButtonReturn = 1001;
static const NSModalResponse NSAlertThirdButtonReturn = 1002;
@interface NSAlert : NSObject
@property (copy) NSString* messageText;
@property (copy) NSString* informativeText;
@property NSAlertStyle alertStyle;
- (NSButton*)addButtonWithTitle:(NSString*)title;
- (NSModalResponse)runModal;
@end

// NSWindow.h
static const NSModalResponse NSModalResponseOK = 1;
static const NSModalResponse NSModalResponseCancel = 0;

NS_ASSUME_NONNULL_END
