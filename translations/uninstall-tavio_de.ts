<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name>CategoryRows</name>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
    <message>
        <source>Recent torrent copies</source>
        <translation>Kopien zuletzt geöffneter Torrents</translation>
    </message>
    <message>
        <source>Playback history and positions</source>
        <translation>Wiedergabeverlauf und -positionen</translation>
    </message>
    <message>
        <source>Temporary cache and update downloads</source>
        <translation>Temporärer Cache und Update-Downloads</translation>
    </message>
    <message>
        <source>Logs and saved window state</source>
        <translation>Protokolle und gespeicherter Fensterzustand</translation>
    </message>
    <message>
        <source>Tavio app</source>
        <translation>Tavio-App</translation>
    </message>
    <message>
        <source>Not found</source>
        <translation>Nicht gefunden</translation>
    </message>
    <message>
        <source>Found</source>
        <translation>Gefunden</translation>
    </message>
    <message>
        <source>waiting</source>
        <translation>wartet</translation>
    </message>
    <message>
        <source>removing</source>
        <translation>wird entfernt</translation>
    </message>
    <message>
        <source>removed</source>
        <translation>entfernt</translation>
    </message>
    <message>
        <source>could not be removed</source>
        <translation>konnte nicht entfernt werden</translation>
    </message>
</context>
<context>
    <name>CommandLine</name>
    <message>
        <source>Remove these items? [y/N] </source>
        <translation>Diese Objekte entfernen? [j/N] </translation>
    </message>
    <message>
        <source>yes</source>
        <translation>ja</translation>
    </message>
    <message>
        <source>Removing (%1 of %2): </source>
        <translation>Wird entfernt (%1 von %2): </translation>
    </message>
    <message>
        <source>Removal has begun; it finishes before the program ends.</source>
        <translation>Das Entfernen hat begonnen; es wird abgeschlossen, bevor das Programm endet.</translation>
    </message>
    <message>
        <source>Nothing was changed: there is no terminal to ask on. Add --yes to remove without asking.</source>
        <translation>Es wurde nichts geändert: Es gibt kein Terminal für die Rückfrage. Mit --yes wird ohne Rückfrage entfernt.</translation>
    </message>
    <message>
        <source>Nothing was changed.</source>
        <translation>Es wurde nichts geändert.</translation>
    </message>
    <message>
        <source>This was a preview: nothing was changed.</source>
        <translation>Dies war eine Vorschau: Es wurde nichts geändert.</translation>
    </message>
    <message>
        <source>Stopped before anything was removed. Nothing was changed.</source>
        <translation>Angehalten, bevor etwas entfernt wurde. Es wurde nichts geändert.</translation>
    </message>
</context>
<context>
    <name>ConfirmationAlert</name>
    <message>
        <source>Permanently remove Tavio and its data?</source>
        <translation>Tavio und seine Daten endgültig entfernen?</translation>
    </message>
    <message>
        <source>This can’t be undone. The app, your settings, playback history and positions, recent torrent copies and cache are deleted. If Tavio is open, it is asked to quit first.</source>
        <translation>Dies kann nicht rückgängig gemacht werden. Die App, Ihre Einstellungen, Wiedergabeverlauf und -positionen, die Kopien zuletzt geöffneter Torrents und der Cache werden gelöscht. Ist Tavio geöffnet, wird es zuerst gebeten, sich zu beenden.</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>Deinstallieren</translation>
    </message>
</context>
<context>
    <name>Core</name>
    <message>
        <source>System error %d</source>
        <translation>Systemfehler %d</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>Zugriff verweigert</translation>
    </message>
    <message>
        <source>A symbolic link in the path was refused</source>
        <translation>Ein symbolischer Link im Pfad wurde abgelehnt</translation>
    </message>
    <message>
        <source>Not owned by this user</source>
        <translation>Gehört nicht diesem Benutzer</translation>
    </message>
    <message>
        <source>Another volume is mounted inside; it was not entered</source>
        <translation>Darin ist ein anderes Volume eingebunden; es wurde nicht betreten</translation>
    </message>
    <message>
        <source>Changed since it was checked</source>
        <translation>Seit der Prüfung verändert</translation>
    </message>
    <message>
        <source>Folder nesting is too deep</source>
        <translation>Die Ordner sind zu tief verschachtelt</translation>
    </message>
    <message>
        <source>Tavio is still running</source>
        <translation>Tavio läuft noch</translation>
    </message>
    <message>
        <source>It was created again after removal</source>
        <translation>Nach dem Entfernen erneut angelegt</translation>
    </message>
    <message>
        <source>A parent is not a folder</source>
        <translation>Ein übergeordnetes Element ist kein Ordner</translation>
    </message>
    <message>
        <source>Could not check whether Tavio is running</source>
        <translation>Es ließ sich nicht prüfen, ob Tavio läuft</translation>
    </message>
    <message>
        <source>added or changed after the app was verified</source>
        <translation>nach der Prüfung der App hinzugefügt oder geändert</translation>
    </message>
    <message>
        <source>Could not save a record of the removal, so it was not started</source>
        <translation>Ein Protokoll der Entfernung ließ sich nicht speichern, deshalb wurde sie nicht begonnen</translation>
    </message>
    <message>
        <source>Skipped: not a verified Tavio app</source>
        <translation>Übersprungen: keine geprüfte Tavio-App</translation>
    </message>
    <message>
        <source>Not an app bundle</source>
        <translation>Kein App-Bundle</translation>
    </message>
    <message>
        <source>Skipped: not a verified Tavio app (the executable is missing)</source>
        <translation>Übersprungen: keine geprüfte Tavio-App (die ausführbare Datei fehlt)</translation>
    </message>
    <message>
        <source>Skipped: not a verified Tavio app (the code signature is not valid)</source>
        <translation>Übersprungen: keine geprüfte Tavio-App (die Codesignatur ist ungültig)</translation>
    </message>
    <message>
        <source>Skipped: the app could not be read</source>
        <translation>Übersprungen: die App ließ sich nicht lesen</translation>
    </message>
    <message>
        <source>An earlier removal of this copy was interrupted</source>
        <translation>Eine frühere Entfernung dieser Kopie wurde unterbrochen</translation>
    </message>
    <message>
        <source>Skipped: not the copy that an interrupted removal had verified</source>
        <translation>Übersprungen: nicht die Kopie, die eine unterbrochene Entfernung geprüft hatte</translation>
    </message>
</context>
<context>
    <name>FinishedView</name>
    <message>
        <source>Tavio Was Uninstalled</source>
        <translation>Tavio wurde deinstalliert</translation>
    </message>
    <message>
        <source>Uninstall Incomplete</source>
        <translation>Deinstallation unvollständig</translation>
    </message>
    <message>
        <source>The app and its data for “%1” were removed. Items that were already gone: %2. Your original .torrent files and downloads were not touched.</source>
        <translation>Die App und ihre Daten für „%1“ wurden entfernt. Bereits nicht mehr vorhandene Objekte: %2. Ihre ursprünglichen .torrent-Dateien und Downloads blieben unberührt.</translation>
    </message>
    <message>
        <source>Some items could not be removed. They are still on your Mac:</source>
        <translation>Einige Objekte konnten nicht entfernt werden. Sie befinden sich noch auf Ihrem Computer:</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Copy Paths</source>
        <translation>Pfade kopieren</translation>
    </message>
    <message>
        <source>Reveal in Finder</source>
        <translation>Im Dateimanager zeigen</translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation>Erneut versuchen</translation>
    </message>
</context>
<context>
    <name>Main</name>
    <message>
        <source>Uninstall Tavio</source>
        <translation>Tavio deinstallieren</translation>
    </message>
</context>
<context>
    <name>NothingToRemoveView</name>
    <message>
        <source>Tavio Isn’t Installed</source>
        <translation>Tavio ist nicht installiert</translation>
    </message>
    <message>
        <source>No Tavio app or app data was found for “%1”. Nothing was changed.</source>
        <translation>Für „%1“ wurden weder eine Tavio-App noch App-Daten gefunden. Es wurde nichts geändert.</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
</context>
<context>
    <name>QuitFailedView</name>
    <message>
        <source>Tavio Didn’t Quit</source>
        <translation>Tavio wurde nicht beendet</translation>
    </message>
    <message>
        <source>Nothing was deleted. Finish or stop playback, close any Tavio dialog, then try again. If Tavio still doesn’t quit, choose Tavio › Quit Tavio yourself.</source>
        <translation>Es wurde nichts gelöscht. Stoppen Sie die Wiedergabe oder warten Sie ihr Ende ab, schließen Sie alle Dialoge von Tavio und versuchen Sie es dann erneut. Wird Tavio weiterhin nicht beendet, wählen Sie selbst „Tavio“ › „Tavio beenden“.</translation>
    </message>
    <message>
        <source>Quit Uninstaller</source>
        <translation>Deinstallationsprogramm beenden</translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation>Erneut versuchen</translation>
    </message>
</context>
<context>
    <name>ReviewView</name>
    <message>
        <source>Uninstall Tavio?</source>
        <translation>Tavio deinstallieren?</translation>
    </message>
    <message>
        <source>This permanently removes Tavio and its data for the user “%1”. Other users on this Mac are not affected.</source>
        <translation>Dadurch werden Tavio und seine Daten für den Benutzer „%1“ endgültig entfernt. Andere Benutzer auf diesem Computer sind nicht betroffen.</translation>
    </message>
    <message>
        <source>Will be removed</source>
        <translation>Wird entfernt</translation>
    </message>
    <message>
        <source>Stays on your Mac</source>
        <translation>Bleibt auf Ihrem Computer</translation>
    </message>
    <message>
        <source>Your original .torrent files, exports and downloaded files</source>
        <translation>Ihre ursprünglichen .torrent-Dateien, Exporte und heruntergeladenen Dateien</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Uninstall…</source>
        <translation>Deinstallieren&#xa0;…</translation>
    </message>
</context>
<context>
    <name>Shell</name>
    <message>
        <source>Uninstall Tavio</source>
        <translation>Tavio deinstallieren</translation>
    </message>
</context>
<context>
    <name>WorkingView</name>
    <message>
        <source>Waiting for Tavio to Quit…</source>
        <translation>Warten, bis Tavio beendet ist&#xa0;…</translation>
    </message>
    <message>
        <source>Removing Tavio…</source>
        <translation>Tavio wird entfernt&#xa0;…</translation>
    </message>
    <message>
        <source>Tavio is saving your playback position and cleaning up its temporary files.</source>
        <translation>Tavio sichert Ihre Wiedergabeposition und räumt seine temporären Dateien auf.</translation>
    </message>
    <message>
        <source>Don’t restart your Mac or open Tavio until this finishes.</source>
        <translation>Starten Sie Ihren Computer nicht neu und öffnen Sie Tavio nicht, bevor der Vorgang abgeschlossen ist.</translation>
    </message>
    <message>
        <source>Waiting for Tavio</source>
        <translation>Warten auf Tavio</translation>
    </message>
    <message>
        <source>Uninstall progress</source>
        <translation>Fortschritt der Deinstallation</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
</TS>
