// ServiceManagement's SMAppService (macOS 13), with the SDK's exact types.
#pragma once

#ifdef __OBJC__

#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_ENUM(NSInteger, SMAppServiceStatus){
    SMAppServiceStatusNotRegistered,
    SMAppServiceStatusEnabled,
    SMAppServiceStatusRequiresApproval,
    SMAppServiceStatusNotFound,
};

API_AVAILABLE(macos(13.0)) API_UNAVAILABLE(ios, tvos, watchos)
@interface SMAppService : NSObject
@property (class, readonly) SMAppService* mainAppService API_AVAILABLE(macos(13.0));
+ (instancetype)loginItemServiceWithIdentifier:(NSString*)identifier API_AVAILABLE(macos(13.0));
+ (instancetype)agentServiceWithPlistName:(NSString*)plistName API_AVAILABLE(macos(13.0));
- (BOOL)registerAndReturnError:(NSError* _Nullable __autoreleasing* _Nullable)error API_AVAILABLE(macos(13.0));
- (BOOL)unregisterAndReturnError:(NSError* _Nullable __autoreleasing* _Nullable)error API_AVAILABLE(macos(13.0));
- (void)unregisterWithCompletionHandler:(void (^)(NSError* _Nullable error))handler API_AVAILABLE(macos(13.0));
@property (readonly) SMAppServiceStatus status API_AVAILABLE(macos(13.0));
+ (void)openSystemSettingsLoginItems API_AVAILABLE(macos(13.0));
@end

NS_ASSUME_NONNULL_END

#endif
