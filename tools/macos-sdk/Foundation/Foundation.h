// Foundation declarations used by Tarnwick's macOS files, with the SDK's exact types.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <objc/objc.h>
#include <os/availability.h>
#include <stdint.h>

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_ENUM(_type, _name) CF_ENUM(_type, _name)
#define NS_OPTIONS(_type, _name) CF_OPTIONS(_type, _name)
#define NS_DESIGNATED_INITIALIZER __attribute__((objc_designated_initializer))
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))
#define NS_INLINE static __inline__ __attribute__((always_inline))
#define NS_TYPED_EXTENSIBLE_ENUM __attribute__((swift_wrapper(struct)))
#ifdef __cplusplus
#define FOUNDATION_EXPORT extern "C"
#else
#define FOUNDATION_EXPORT extern
#endif

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double NSTimeInterval;

NS_ASSUME_NONNULL_BEGIN

@class NSString, NSArray<ObjectType>, NSDictionary<KeyType, ObjectType>, NSURL, NSError, NSDate, NSOperationQueue;

// NSObject.h and the runtime's root class.
@protocol NSObject
- (BOOL)isEqual:(id)object;
@property (readonly) NSUInteger hash;
- (BOOL)isKindOfClass:(Class)aClass;
@property (readonly, copy) NSString* description;
@end

OBJC_ROOT_CLASS
@interface NSObject <NSObject>
+ (instancetype)alloc;
+ (instancetype)new;
- (instancetype)init;
+ (Class)class;
@end

@protocol NSCopying
- (id)copyWithZone:(nullable struct _NSZone*)zone;
@end
@protocol NSMutableCopying
- (id)mutableCopyWithZone:(nullable struct _NSZone*)zone;
@end
@protocol NSCoding
@end
@protocol NSSecureCoding <NSCoding>
@end

NS_INLINE CF_RETURNS_RETAINED CFTypeRef _Nullable CFBridgingRetain(id _Nullable X) {
    return (__bridge_retained CFTypeRef)X;
}
NS_INLINE id _Nullable CFBridgingRelease(CFTypeRef CF_CONSUMED _Nullable X) { return (__bridge_transfer id)X; }

// NSEnumerator.h
typedef struct {
    unsigned long state;
    id __unsafe_unretained _Nullable* _Nullable itemsPtr;
    unsigned long* _Nullable mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;
@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end

// NSString.h
@interface NSString : NSObject <NSCopying, NSMutableCopying, NSSecureCoding>
@property (readonly) NSUInteger length;
@property (nullable, readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
- (nullable instancetype)initWithUTF8String:(const char*)nullTerminatedCString;
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
- (BOOL)isEqualToString:(NSString*)aString;
@end

// NSArray.h
@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property (readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
@property (nullable, nonatomic, readonly) ObjectType firstObject;
+ (instancetype)array;
+ (instancetype)arrayWithObject:(ObjectType)anObject;
@end
@interface NSMutableArray<ObjectType> : NSArray<ObjectType>
- (void)addObject:(ObjectType)anObject;
+ (instancetype)arrayWithCapacity:(NSUInteger)numItems;
@end

// NSDictionary.h
@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property (readonly) NSUInteger count;
- (nullable ObjectType)objectForKey:(KeyType)aKey;
@end

// NSURL.h
@interface NSURL : NSObject <NSSecureCoding, NSCopying>
+ (NSURL*)fileURLWithPath:(NSString*)path;
+ (nullable instancetype)URLWithString:(NSString*)URLString;
@property (nullable, readonly, copy) NSString* path;
@property (nullable, readonly, copy) NSString* lastPathComponent;
@property (readonly, getter=isFileURL) BOOL fileURL;
@end

// NSError.h
@interface NSError : NSObject <NSCopying, NSSecureCoding>
@property (readonly) NSInteger code;
@property (readonly, copy) NSString* localizedDescription;
@end

// NSDate.h
@interface NSDate : NSObject <NSCopying, NSSecureCoding>
@property (readonly) NSTimeInterval timeIntervalSince1970;
@end
@interface NSDate (NSDateCreation)
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)secs;
+ (instancetype)dateWithTimeIntervalSince1970:(NSTimeInterval)secs;
@end

// NSFormatter.h, NSDateFormatter.h
@interface NSFormatter : NSObject <NSCopying, NSCoding>
@end
@interface NSDateFormatter : NSFormatter
@property (null_resettable, copy) NSString* dateFormat;
- (NSString*)stringFromDate:(NSDate*)date;
@end

// NSValue.h
@interface NSValue : NSObject <NSCopying, NSSecureCoding>
@end
@interface NSNumber : NSValue
@property (readonly) NSInteger integerValue API_AVAILABLE(macos(10.5));
@end
@interface NSNumber (NSNumberCreation)
+ (NSNumber*)numberWithInteger:(NSInteger)value API_AVAILABLE(macos(10.5));
@end

// NSThread.h
@interface NSThread : NSObject
@property (class, readonly) BOOL isMainThread API_AVAILABLE(macos(10.5));
@property (readonly) BOOL isMainThread API_AVAILABLE(macos(10.5));
@end

// NSObjCRuntime.h
FOUNDATION_EXPORT SEL NSSelectorFromString(NSString* aSelectorName);

// NSBundle.h
@interface NSBundle : NSObject
@property (class, readonly, strong) NSBundle* mainBundle;
@property (nullable, readonly, copy) NSString* bundleIdentifier;
- (nullable id)objectForInfoDictionaryKey:(NSString*)key;
@end

// NSUserDefaults.h
@interface NSUserDefaults : NSObject
@property (class, readonly, strong) NSUserDefaults* standardUserDefaults;
- (NSInteger)integerForKey:(NSString*)defaultName;
- (void)setInteger:(NSInteger)value forKey:(NSString*)defaultName;
- (BOOL)boolForKey:(NSString*)defaultName;
- (void)setBool:(BOOL)value forKey:(NSString*)defaultName;
- (void)registerDefaults:(NSDictionary<NSString*, id>*)registrationDictionary;
@end

// NSTimer.h: interval, repeats, block.
@interface NSTimer : NSObject
+ (NSTimer*)timerWithTimeInterval:(NSTimeInterval)interval
                          repeats:(BOOL)repeats
                            block:(void (^)(NSTimer* timer))block API_AVAILABLE(macosx(10.12));
+ (NSTimer*)scheduledTimerWithTimeInterval:(NSTimeInterval)interval
                                   repeats:(BOOL)repeats
                                     block:(void (^)(NSTimer* timer))block API_AVAILABLE(macosx(10.12));
- (void)invalidate;
@property (readonly, getter=isValid) BOOL valid;
@end

// NSObjCRuntime.h, NSRunLoop.h
typedef NSString* NSRunLoopMode NS_TYPED_EXTENSIBLE_ENUM;
FOUNDATION_EXPORT NSRunLoopMode const NSDefaultRunLoopMode;
FOUNDATION_EXPORT NSRunLoopMode const NSRunLoopCommonModes API_AVAILABLE(macos(10.5));
@interface NSRunLoop : NSObject
@property (class, readonly, strong) NSRunLoop* currentRunLoop;
@property (class, readonly, strong) NSRunLoop* mainRunLoop API_AVAILABLE(macos(10.5));
- (void)addTimer:(NSTimer*)timer forMode:(NSRunLoopMode)mode;
@end
@interface NSRunLoop (NSRunLoopConveniences)
- (BOOL)runMode:(NSRunLoopMode)mode beforeDate:(NSDate*)limitDate;
@end

// NSPathUtilities.h
FOUNDATION_EXPORT NSString* NSHomeDirectory(void);
typedef NS_ENUM(NSUInteger, NSSearchPathDirectory){
    NSApplicationDirectory = 1,
    NSDemoApplicationDirectory,
    NSDeveloperApplicationDirectory,
    NSAdminApplicationDirectory,
    NSLibraryDirectory,
    NSDeveloperDirectory,
    NSUserDirectory,
    NSDocumentationDirectory,
    NSDocumentDirectory,
    NSCoreServiceDirectory,
    NSAutosavedInformationDirectory = 11,
    NSDesktopDirectory = 12,
    NSCachesDirectory = 13,
    NSApplicationSupportDirectory = 14,
    NSDownloadsDirectory = 15,
    NSInputMethodsDirectory = 16,
    NSMoviesDirectory = 17,
    NSMusicDirectory = 18,
    NSPicturesDirectory = 19,
    NSPrinterDescriptionDirectory = 20,
    NSSharedPublicDirectory = 21,
    NSPreferencePanesDirectory = 22,
    NSApplicationScriptsDirectory = 23,
    NSItemReplacementDirectory = 99,
    NSAllApplicationsDirectory = 100,
    NSAllLibrariesDirectory = 101,
    NSTrashDirectory = 102,
};
typedef NS_OPTIONS(NSUInteger, NSSearchPathDomainMask){
    NSUserDomainMask = 1,
    NSLocalDomainMask = 2,
    NSNetworkDomainMask = 4,
    NSSystemDomainMask = 8,
    NSAllDomainsMask = 0x0ffff,
};

// NSFileManager.h
typedef NSString* NSFileAttributeKey NS_TYPED_EXTENSIBLE_ENUM;
@interface NSFileManager : NSObject
@property (class, readonly, strong) NSFileManager* defaultManager;
- (NSArray<NSURL*>*)URLsForDirectory:(NSSearchPathDirectory)directory
                           inDomains:(NSSearchPathDomainMask)domainMask API_AVAILABLE(macos(10.6));
- (BOOL)createDirectoryAtURL:(NSURL*)url
    withIntermediateDirectories:(BOOL)createIntermediates
                     attributes:(nullable NSDictionary<NSFileAttributeKey, id>*)attributes
                          error:(NSError**)error API_AVAILABLE(macos(10.7));
- (BOOL)fileExistsAtPath:(NSString*)path;
- (BOOL)fileExistsAtPath:(NSString*)path isDirectory:(nullable BOOL*)isDirectory;
@end

// NSNotification.h
typedef NSString* NSNotificationName NS_TYPED_EXTENSIBLE_ENUM;
@interface NSNotification : NSObject <NSCopying, NSCoding>
@property (readonly, copy) NSNotificationName name;
@property (nullable, readonly, retain) id object;
@property (nullable, readonly, copy) NSDictionary* userInfo;
@end
@interface NSNotificationCenter : NSObject
@property (class, readonly, strong) NSNotificationCenter* defaultCenter;
- (void)addObserver:(id)observer
           selector:(SEL)aSelector
               name:(nullable NSNotificationName)aName
             object:(nullable id)anObject;
- (void)removeObserver:(id)observer;
- (id<NSObject>)addObserverForName:(nullable NSNotificationName)name
                            object:(nullable id)obj
                             queue:(nullable NSOperationQueue*)queue
                        usingBlock:(void (^)(NSNotification* note))block;
@end

NS_ASSUME_NONNULL_END
