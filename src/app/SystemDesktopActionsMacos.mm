// Compiled as Objective-C++ with automatic reference counting.
#import <AppKit/AppKit.h>

#include <memory>

#include "app/SystemDesktopActions.h"
#include "app/SystemServices.h"

namespace app {

void SystemDesktopActions::setClipboardText(const QString& text) {
    @autoreleasepool {
        NSPasteboard* pasteboard = [NSPasteboard generalPasteboard];
        [pasteboard clearContents];
        (void)[pasteboard setString:text.toNSString() forType:NSPasteboardTypeString];
    }
}

bool SystemDesktopActions::exists(const QString& path) const {
    @autoreleasepool {
        return [[NSFileManager defaultManager] fileExistsAtPath:path.toNSString()];
    }
}

void SystemDesktopActions::reveal(const QStringList& paths) {
    @autoreleasepool {
        NSMutableArray<NSURL*>* urls =
            [NSMutableArray arrayWithCapacity:static_cast<NSUInteger>(paths.size())];
        for (const QString& path : paths) {
            [urls addObject:[NSURL fileURLWithPath:path.toNSString()]];
        }
        [[NSWorkspace sharedWorkspace] activateFileViewerSelectingURLs:urls];
    }
}

std::shared_ptr<DesktopActions> makeSystemDesktopActions() {
    return std::make_shared<SystemDesktopActions>();
}

}  // namespace app
