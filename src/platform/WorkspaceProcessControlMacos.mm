// Compiled as Objective-C++ with automatic reference counting.
#import <AppKit/AppKit.h>

#include "platform/WorkspaceProcessControl.h"

namespace platform {
namespace {

// The running instances of the product, in the workspace's order: those not
// yet terminated, without our own process. Asked afresh on every call. The
// array is autoreleased; callers hold an autorelease pool around its use.
NSArray<NSRunningApplication*>* runningInstances(const std::string& bundleIdentifier) {
    NSString* identifier = [[NSString alloc] initWithBytes:bundleIdentifier.data()
                                                    length:bundleIdentifier.size()
                                                  encoding:NSUTF8StringEncoding];
    if (identifier == nil) {
        return @[];
    }
    const pid_t own = [[NSProcessInfo processInfo] processIdentifier];
    NSMutableArray<NSRunningApplication*>* kept = [NSMutableArray array];
    for (NSRunningApplication* application in
         [NSRunningApplication runningApplicationsWithBundleIdentifier:identifier]) {
        if (!application.terminated && application.processIdentifier != own) {
            [kept addObject:application];
        }
    }
    return kept;
}

}  // namespace

bool WorkspaceProcessControl::isRunning() const {
    @autoreleasepool {
        return runningInstances(bundleIdentifier).count > 0;
    }
}

void WorkspaceProcessControl::requestQuit() const {
    @autoreleasepool {
        for (NSRunningApplication* application in runningInstances(bundleIdentifier)) {
            // Whether the request was delivered tells nothing about whether
            // the copy will quit; the caller polls isRunning() for that.
            (void)[application terminate];
        }
    }
}

}  // namespace platform
