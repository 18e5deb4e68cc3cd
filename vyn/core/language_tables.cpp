// Message texts of every module, English and German. German texts are
// Windows-1252 bytes written as escapes so that the source stays ASCII.
// Edit with care: every byte is part of the log files and screens users
// compare against.
#include "vyn/core/internal/language_tables.h"

namespace vyn::language {

const LanguageText kSystemLogTexts[] = {
    {1, "The logfile could not be created.", "Die Logdatei konnte nicht erzeugt werden."},
    {2, "The current directory can not be determined, therefore the logfile can not be created.",
     "Das aktuelle Verzeichnis kann nicht bestimmt werden, die Logdatei konnte daher nicht erzeugt "
     "werden."},
    {3, "The system log has been started.", "Der System Log wurde gestartet."},
    {4, "The system log could not be started.", "Der System Log konnte nicht gestartet werden."},
};
const LanguageTable kSystemLogTable = {kSystemLogTexts,
                                       sizeof kSystemLogTexts / sizeof kSystemLogTexts[0]};

const LanguageText kThreadMonitorTexts[] = {
    {1, "The thread monitor has been started.", "Der Thread Monitor wurde gestartet."},
    {2, "The thread monitor could not be started.",
     "Der Thread Monitor konnte nicht gestartet werden."},
    {3,
     "A thread has stopped to respond. The thread monitor is going to create a memory dump of the "
     "application.",
     "Ein Thread reagiert nicht mehr. Der Thread Monitor wird einen Speicherauszug der Anwendung "
     "erstellen."},
};
const LanguageTable kThreadMonitorTable = {
    kThreadMonitorTexts, sizeof kThreadMonitorTexts / sizeof kThreadMonitorTexts[0]};

const LanguageText kMessageQueueTexts[] = {
    {1, "The message queue has been started.", "Die Message Queue wurde gestartet."},
    {2, "The message queue could not be started.",
     "Die Message Queue konnte nicht gestartet werden."},
};
const LanguageTable kMessageQueueTable = {kMessageQueueTexts,
                                          sizeof kMessageQueueTexts / sizeof kMessageQueueTexts[0]};

const LanguageText kPluginManagerTexts[] = {
    {1, "The plugin manager has been started.", "Der Plugin Manager wurde gestartet."},
    {2, "The plugin manager could not be started.",
     "Der Plugin Manager konnte nicht gestartet werden."},
    {3, "The plugin manager has been terminated.", "Der Plugin Manager wurde beendet."},
};
const LanguageTable kPluginManagerTable = {
    kPluginManagerTexts, sizeof kPluginManagerTexts / sizeof kPluginManagerTexts[0]};

const LanguageText kSerialPortTexts[] = {
    {1, "The serial port could not be opened.",
     "Die serielle Schnittstelle konnte nicht ge\xF6"
     "ffnet werden."},
    {2, "The configuration of the serial port could not be read.",
     "Die Konfiguration der seriellen Schnittstelle konnte nicht gelesen werden."},
    {3, "The configuration of the serial port could not be written.",
     "Die Konfiguration der seriellen Schnittstelle konnte nicht geschrieben werden."},
    {4, "The timout configuration of the serial port could not be written.",
     "Die Timeout Konfiguration der seriellen Schnittstelle konnte nicht geschrieben werden."},
    {5, "The serial port has been opened.",
     "Die serielle Schnittstelle wurde ge\xF6"
     "ffnet."},
    {6, "The serial port has been closed.", "Die serielle Schnittstelle wurde geschlossen."},
    {7, "The receiving thread has been initialized.", "Der Empfangsthread wurde initialisiert."},
    {8, "A needed memory could not be allocated.",
     "Ein notwendiger Speicher konnte nicht angefordert werden."},
    {9, "The receiving thread has been terminated.", "Der Empfangsthread wurde beendet."},
};
const LanguageTable kSerialPortTable = {kSerialPortTexts,
                                        sizeof kSerialPortTexts / sizeof kSerialPortTexts[0]};

const LanguageText kMemoryDumpTexts[] = {
    {1, "The directory for the dumpfile can not be created.",
     "Das Verzeichnis f\xFCr die Dumpdatei konnte nicht erzeugt werden."},
    {2, "The current directory can not be determined, therefore the dumpfile can not be created.",
     "Das aktuelle Verzeichnis kann nicht bestimmt werden, die Dumpdatei konnte daher nicht "
     "erzeugt werden."},
    {3, "The dumpfile has been saved to the following file:",
     "Die Dumpdatei wurde in die folgende Datei geschrieben:"},
    {4, "The dumpfile could not be saved to the following file",
     "Die Dumpdatei konnte nicht in die folgende Datei geschrieben werden"},
    {5, "The dumpfile could not be created", "Die Dumpdatei konnte nicht erstellt werden"},
    {6, "The dumpfile could not be created because DBGHELP.DLL is not compatible.",
     "Die Dumpdatei konnte nicht erstellt werden weil DBGHELP.dll nicht kompatibel ist."},
    {7, "The dumpfile could not be created because DBGHELP.DLL could not be found.",
     "Die Dumpdatei konnte nicht erstellt werden weil DBGHELP.dll nicht gefunden wurde."},
    {8, "The application has detected a critical problem and needs to close.",
     "Die Anwendung hat einen kritischen Fehler festgestellt und muss geschlossen werden."},
    {9, "The application has detected a heap corruption.",
     "Die Anwendung hat eine Verf\xE4lschung des Heaps festgestellt."},
    {16, "The cyclic heap check has been started.",
     "Die zyklische Heap \xDC"
     "berpr\xFC"
     "fung wurde gestartet."},
    {17, "The cyclic heap check could not be started.",
     "Die zyklische Heap \xDC"
     "berpr\xFC"
     "fung konnte nicht gestartet werden."},
    {18, "The cyclic heap check has been stopped.",
     "Die zyklische Heap \xDC"
     "berpr\xFC"
     "fung wurde beendet."},
    {19, "The application is going to provoke a crash.",
     "Die Anwendung wird einen Absturz provozieren."},
    {20, "The application is going to provoke a hang.",
     "Die Anwendung wird ein H\xE4ngenbleiben provozieren."},
    {21, "The application is going to provoke a heap corruption.",
     "Die Anwendung wird eine Verf\xE4lschung des Heaps provozieren."},
};
const LanguageTable kMemoryDumpTable = {kMemoryDumpTexts,
                                        sizeof kMemoryDumpTexts / sizeof kMemoryDumpTexts[0]};

const LanguageText kSTM32BootLoaderTexts[] = {
    {1, "The file could not be opened: ", "Die Logdatei konnte nicht erzeugt werden."},
    {2, "Preparing update file ...", "Die Updatedatei wird vorbereitet ..."},
    {3, "The update file has been prepared.", "Die Updatedatei wurde vorbereitet."},
    {4, "Unable to connect to bootloader.",
     "Die Verbindung zum Bootloader konnte nicht hergestellt werden."},
    {5, "Unable to get bootloader version.",
     "Die Version vom Bootloader konnte nicht ermittelt werden."},
    {6, "Found bootloader version:", "Ermittelte Bootloader Version:"},
    {7, "The version of the bootloader is not supported.",
     "Die Version vom Bootloader wird nicht unterst\xFCtzt."},
    {8, "The chip ID could not be determined.", "Die Chip ID konnte nicht ermittelt werden."},
    {9, "Detected chip ID:", "Ermittelte Chip ID:"},
    {16, "The chip is going to be erased ...", "Der Chip wird gel\xF6scht ..."},
    {17, "The chip could not be erased.", "Der Chip konnte nicht gel\xF6scht werden."},
    {18, "The chip has been erased.", "Der Chip wurde gel\xF6scht."},
    {19, "The chip could not be erased.", "Der Chip konnte nicht gel\xF6scht werden."},
    {20, "The chip has been erased.", "Der Chip wurde gel\xF6scht."},
    {21, "The chip is going to be programmed ...", "Der Chip wird programmiert ..."},
    {22, "The chip could not be programmed.", "Der Chip konnte nicht programmiert werden."},
    {23, "The chip has been programmed.", "Der Chip wurde programmiert."},
    {24, "Sending Go command ...", "Das Go Kommando wird gesendet ..."},
    {25, "The Go command could not be sent.", "Das Go Kommando konnte nicht gesendet werden."},
    {32, "The Go command has been sent.", "Das Go Kommando wurde gesendet."},
};
const LanguageTable kSTM32BootLoaderTable = {
    kSTM32BootLoaderTexts, sizeof kSTM32BootLoaderTexts / sizeof kSTM32BootLoaderTexts[0]};

}  // namespace vyn::language
