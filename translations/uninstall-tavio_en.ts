<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>CategoryRows</name>
    <message>
        <source>Settings</source>
        <translation>Settings</translation>
    </message>
    <message>
        <source>Recent torrent copies</source>
        <translation>Recent torrent copies</translation>
    </message>
    <message>
        <source>Playback history and positions</source>
        <translation>Playback history and positions</translation>
    </message>
    <message>
        <source>Temporary cache and update downloads</source>
        <translation>Temporary cache and update downloads</translation>
    </message>
    <message>
        <source>Logs and saved window state</source>
        <translation>Logs and saved window state</translation>
    </message>
    <message>
        <source>Tavio app</source>
        <translation>Tavio app</translation>
    </message>
    <message>
        <source>Not found</source>
        <translation>Not found</translation>
    </message>
    <message>
        <source>Found</source>
        <translation>Found</translation>
    </message>
    <message>
        <source>waiting</source>
        <translation>waiting</translation>
    </message>
    <message>
        <source>removing</source>
        <translation>removing</translation>
    </message>
    <message>
        <source>removed</source>
        <translation>removed</translation>
    </message>
    <message>
        <source>could not be removed</source>
        <translation>could not be removed</translation>
    </message>
</context>
<context>
    <name>CommandLine</name>
    <message>
        <source>Remove these items? [y/N] </source>
        <translation>Remove these items? [y/N] </translation>
    </message>
    <message>
        <source>yes</source>
        <translation>yes</translation>
    </message>
    <message>
        <source>Removing (%1 of %2): </source>
        <translation>Removing (%1 of %2): </translation>
    </message>
    <message>
        <source>Removal has begun; it finishes before the program ends.</source>
        <translation>Removal has begun; it finishes before the program ends.</translation>
    </message>
    <message>
        <source>Nothing was changed: there is no terminal to ask on. Add --yes to remove without asking.</source>
        <translation>Nothing was changed: there is no terminal to ask on. Add --yes to remove without asking.</translation>
    </message>
    <message>
        <source>Nothing was changed.</source>
        <translation>Nothing was changed.</translation>
    </message>
    <message>
        <source>This was a preview: nothing was changed.</source>
        <translation>This was a preview: nothing was changed.</translation>
    </message>
    <message>
        <source>Stopped before anything was removed. Nothing was changed.</source>
        <translation>Stopped before anything was removed. Nothing was changed.</translation>
    </message>
</context>
<context>
    <name>ConfirmationAlert</name>
    <message>
        <source>Permanently remove Tavio and its data?</source>
        <translation>Permanently remove Tavio and its data?</translation>
    </message>
    <message>
        <source>This can’t be undone. The app, your settings, playback history and positions, recent torrent copies and cache are deleted. If Tavio is open, it is asked to quit first.</source>
        <translation>This can’t be undone. The app, your settings, playback history and positions, recent torrent copies and cache are deleted. If Tavio is open, it is asked to quit first.</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>Uninstall</translation>
    </message>
</context>
<context>
    <name>Core</name>
    <message>
        <source>System error %d</source>
        <translation>System error %d</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>Permission denied</translation>
    </message>
    <message>
        <source>A symbolic link in the path was refused</source>
        <translation>A symbolic link in the path was refused</translation>
    </message>
    <message>
        <source>Not owned by this user</source>
        <translation>Not owned by this user</translation>
    </message>
    <message>
        <source>Another volume is mounted inside; it was not entered</source>
        <translation>Another volume is mounted inside; it was not entered</translation>
    </message>
    <message>
        <source>Changed since it was checked</source>
        <translation>Changed since it was checked</translation>
    </message>
    <message>
        <source>Folder nesting is too deep</source>
        <translation>Folder nesting is too deep</translation>
    </message>
    <message>
        <source>Tavio is still running</source>
        <translation>Tavio is still running</translation>
    </message>
    <message>
        <source>It was created again after removal</source>
        <translation>It was created again after removal</translation>
    </message>
    <message>
        <source>A parent is not a folder</source>
        <translation>A parent is not a folder</translation>
    </message>
    <message>
        <source>Could not check whether Tavio is running</source>
        <translation>Could not check whether Tavio is running</translation>
    </message>
    <message>
        <source>added or changed after the app was verified</source>
        <translation>added or changed after the app was verified</translation>
    </message>
    <message>
        <source>Could not save a record of the removal, so it was not started</source>
        <translation>Could not save a record of the removal, so it was not started</translation>
    </message>
    <message>
        <source>Skipped: not a verified Tavio app</source>
        <translation>Skipped: not a verified Tavio app</translation>
    </message>
    <message>
        <source>Not an app bundle</source>
        <translation>Not an app bundle</translation>
    </message>
    <message>
        <source>Skipped: not a verified Tavio app (the executable is missing)</source>
        <translation>Skipped: not a verified Tavio app (the executable is missing)</translation>
    </message>
    <message>
        <source>Skipped: not a verified Tavio app (the code signature is not valid)</source>
        <translation>Skipped: not a verified Tavio app (the code signature is not valid)</translation>
    </message>
    <message>
        <source>Skipped: the app could not be read</source>
        <translation>Skipped: the app could not be read</translation>
    </message>
    <message>
        <source>An earlier removal of this copy was interrupted</source>
        <translation>An earlier removal of this copy was interrupted</translation>
    </message>
    <message>
        <source>Skipped: not the copy that an interrupted removal had verified</source>
        <translation>Skipped: not the copy that an interrupted removal had verified</translation>
    </message>
</context>
<context>
    <name>FinishedView</name>
    <message>
        <source>Tavio Was Uninstalled</source>
        <translation>Tavio Was Uninstalled</translation>
    </message>
    <message>
        <source>Uninstall Incomplete</source>
        <translation>Uninstall Incomplete</translation>
    </message>
    <message>
        <source>The app and its data for “%1” were removed. Items that were already gone: %2. Your original .torrent files and downloads were not touched.</source>
        <translation>The app and its data for “%1” were removed. Items that were already gone: %2. Your original .torrent files and downloads were not touched.</translation>
    </message>
    <message>
        <source>Some items could not be removed. They are still on your Mac:</source>
        <translation>Some items could not be removed. They are still on your computer:</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Quit</translation>
    </message>
    <message>
        <source>Copy Paths</source>
        <translation>Copy Paths</translation>
    </message>
    <message>
        <source>Reveal in Finder</source>
        <translation>Show in File Manager</translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation>Try Again</translation>
    </message>
</context>
<context>
    <name>Main</name>
    <message>
        <source>Uninstall Tavio</source>
        <translation>Uninstall Tavio</translation>
    </message>
</context>
<context>
    <name>NothingToRemoveView</name>
    <message>
        <source>Tavio Isn’t Installed</source>
        <translation>Tavio Isn’t Installed</translation>
    </message>
    <message>
        <source>No Tavio app or app data was found for “%1”. Nothing was changed.</source>
        <translation>No Tavio app or app data was found for “%1”. Nothing was changed.</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Quit</translation>
    </message>
</context>
<context>
    <name>QuitFailedView</name>
    <message>
        <source>Tavio Didn’t Quit</source>
        <translation>Tavio Didn’t Quit</translation>
    </message>
    <message>
        <source>Nothing was deleted. Finish or stop playback, close any Tavio dialog, then try again. If Tavio still doesn’t quit, choose Tavio › Quit Tavio yourself.</source>
        <translation>Nothing was deleted. Finish or stop playback, close any Tavio dialog, then try again. If Tavio still doesn’t quit, choose Tavio › Quit Tavio yourself.</translation>
    </message>
    <message>
        <source>Quit Uninstaller</source>
        <translation>Quit Uninstaller</translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation>Try Again</translation>
    </message>
</context>
<context>
    <name>ReviewView</name>
    <message>
        <source>Uninstall Tavio?</source>
        <translation>Uninstall Tavio?</translation>
    </message>
    <message>
        <source>This permanently removes Tavio and its data for the user “%1”. Other users on this Mac are not affected.</source>
        <translation>This permanently removes Tavio and its data for the user “%1”. Other users on this computer are not affected.</translation>
    </message>
    <message>
        <source>Will be removed</source>
        <translation>Will be removed</translation>
    </message>
    <message>
        <source>Stays on your Mac</source>
        <translation>Stays on your computer</translation>
    </message>
    <message>
        <source>Your original .torrent files, exports and downloaded files</source>
        <translation>Your original .torrent files, exports and downloaded files</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>Uninstall…</source>
        <translation>Uninstall…</translation>
    </message>
</context>
<context>
    <name>Shell</name>
    <message>
        <source>Uninstall Tavio</source>
        <translation>Uninstall Tavio</translation>
    </message>
</context>
<context>
    <name>WorkingView</name>
    <message>
        <source>Waiting for Tavio to Quit…</source>
        <translation>Waiting for Tavio to Quit…</translation>
    </message>
    <message>
        <source>Removing Tavio…</source>
        <translation>Removing Tavio…</translation>
    </message>
    <message>
        <source>Tavio is saving your playback position and cleaning up its temporary files.</source>
        <translation>Tavio is saving your playback position and cleaning up its temporary files.</translation>
    </message>
    <message>
        <source>Don’t restart your Mac or open Tavio until this finishes.</source>
        <translation>Don’t restart your computer or open Tavio until this finishes.</translation>
    </message>
    <message>
        <source>Waiting for Tavio</source>
        <translation>Waiting for Tavio</translation>
    </message>
    <message>
        <source>Uninstall progress</source>
        <translation>Uninstall progress</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
</context>
</TS>
