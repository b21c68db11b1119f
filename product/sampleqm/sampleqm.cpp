// A small queue manager to move: made, started, verified from the command line. All its places come from the
// configuration each time, so that it runs where the configuration says.
#include <windows.h>

#include <string>
#include <vector>

#include "path.h"
#include "qmclient.h"
#include "qmfiles.h"
#include "qmrun.h"
#include "replacefile.h"
#include "text.h"
#include "tovxcs2.h"

namespace
{
enum ExitCode : int
{
    EXIT_DONE = 0,
    EXIT_USAGE = 1,
    EXIT_CONFIGURATION = 2,
    EXIT_DAMAGED = RUN_FILES_DAMAGED,
    EXIT_NOT_STARTED = RUN_ALREADY_RUNNING,
    EXIT_SYSTEM = RUN_SYSTEM,
};

constexpr wchar_t USAGE[] =
    L"Usage: sampleqm create QM /dd prefix /ld logparent [/files N]\n"
    L"       sampleqm start QM [/refuse]   in the background, once it is active\n"
    L"       sampleqm run QM [/refuse]     until the end command ends it\n"
    L"       sampleqm verify QM            checks every record\n"
    L"Exit status: 0 done, 1 wrong usage, 2 no such queue manager or its configuration\n"
    L"  cannot be used, 3 files missing or damaged, 4 runs already or did not start,\n"
    L"  5 the system failed";

struct Words
{
    std::wstring strVerb, strName, strDataPrefix, strLogParent, strReadyEvent, strFiles = L"200";
    unsigned nFiles = 0;
    bool fRefuse = false;
};

int Fail(ExitCode eCode, const std::wstring& strText)
{
    PrintLine(stderr, strText);
    return eCode;
}

// Only characters that a directory's name can hold too: the product allows more.
bool IsQueueManagerName(const std::wstring& strName)
{
    constexpr size_t MAX_NAME = 48;
    constexpr wchar_t ALLOWED[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_%";
    return !strName.empty() && strName.size() <= MAX_NAME &&
           strName.find_first_not_of(ALLOWED) == std::wstring::npos;
}

// Where the value of a switch goes; null for a word that is none.
std::wstring* ValueOf(const std::wstring& strSwitch, Words& parsed)
{
    return strSwitch == L"/dd"      ? &parsed.strDataPrefix
           : strSwitch == L"/ld"    ? &parsed.strLogParent
           : strSwitch == L"/ready" ? &parsed.strReadyEvent
           : strSwitch == L"/files" ? &parsed.strFiles
                                    : nullptr;
}

bool Parse(const std::vector<std::wstring>& words, Words& parsed)
{
    constexpr size_t MAX_DIGITS = 6;
    if (words.size() < 2)
        return false;
    parsed.strVerb = words[0];
    parsed.strName = words[1];
    for (size_t n = 2; n < words.size(); ++n)
    {
        std::wstring* const pValue = ValueOf(words[n], parsed);
        if (words[n] == L"/refuse")
            parsed.fRefuse = true;
        else if (pValue != nullptr && n + 1 < words.size())
            *pValue = words[++n];
        else
            return false;
    }
    const std::wstring& strFiles = parsed.strFiles;
    if (strFiles.empty() || strFiles.size() > MAX_DIGITS ||
        strFiles.find_first_not_of(L"0123456789") != std::wstring::npos)
        return false;
    parsed.nFiles = static_cast<unsigned>(std::stoul(strFiles));
    return IsQueueManagerName(parsed.strName);
}

std::optional<QueueManagerFiles> FilesOf(const QueueManager& queueManager)
{
    const auto strName = Narrow(queueManager.strName);
    char szIni[XCS_PATH_SIZE];
    uint32_t nFileType = 0;
    if (!strName || xcsGetIniFilename(strName->c_str(), szIni, &nFileType) != 0)
        return std::nullopt;
    char szLogPath[XCS_PATH_SIZE];
    uint32_t nLength = sizeof szLogPath;
    if (xcsIniUtilRead("Log", nullptr, nullptr, "LogPath", szLogPath, &nLength, szIni, nFileType) != 0)
        return std::nullopt;
    auto strLogDirectory = Widen({szLogPath, nLength});
    if (!strLogDirectory || !IsAbsolutePath(*strLogDirectory))
        return std::nullopt;
    RemoveTrailingBackslash(*strLogDirectory);
    return QueueManagerFiles{queueManager.strDataDirectory, *strLogDirectory};
}

int Create(Words words)
{
    if (!IsAbsolutePath(words.strDataPrefix) || !IsAbsolutePath(words.strLogParent))
        return Fail(EXIT_USAGE, USAGE);
    if (FindQueueManager(words.strName))
        return Fail(EXIT_CONFIGURATION,
                    L"There is a queue manager '" + words.strName + L"' already: choose another name.");
    RemoveTrailingBackslash(words.strDataPrefix);
    RemoveTrailingBackslash(words.strLogParent);
    const QueueManagerFiles files = {words.strDataPrefix + L"\\qmgrs\\" + words.strName,
                                     words.strLogParent + L"\\" + words.strName};
    std::wstring strFailed;
    if (const DWORD nError = CreateFiles(files, words.nFiles, strFailed))
        return Fail(EXIT_SYSTEM, strFailed + L": " + ErrorText(nError));

    // Last of all, so that no queue manager is known that is not whole.
    char szIni[XCS_PATH_SIZE];
    uint32_t nFileType = 0;
    const auto strStanza = Narrow(L"QueueManager:\r\n   Name=" + words.strName + L"\r\n   Prefix=" +
                                  words.strDataPrefix + L"\r\n   Directory=" + words.strName + L"\r\n");
    if (!strStanza || xcsGetIniFilename(nullptr, szIni, &nFileType) != 0)
        return Fail(EXIT_CONFIGURATION,
                    L"zns.ini cannot hold these names: use characters of the system's code page.");
    const DWORD nError = ReplaceFileContent(WidenForDisplay(szIni), [&](const std::string& strText) {
        const bool fLineOpen = !strText.empty() && strText.back() != '\n';
        return strText + (fLineOpen ? "\r\n" : "") + *strStanza +
               "   InstallationName=" + PrimaryInstallationName() + "\r\n";
    });
    if (nError != ERROR_SUCCESS)
        return Fail(EXIT_SYSTEM, WidenForDisplay(szIni) + L": " + ErrorText(nError));
    const auto created = FindQueueManager(words.strName);
    if (!created || created->strDataDirectory != files.strDataDirectory)
        return Fail(EXIT_CONFIGURATION, L"The stanza that was added to " + WidenForDisplay(szIni) +
                                            L" cannot be used: check the paths and the installation.");
    PrintLine(stdout, L"Queue manager '" + words.strName + L"' created in " + files.strDataDirectory +
                          L" and " + files.strLogDirectory + L".");
    return EXIT_DONE;
}

int Verify(const QueueManager& queueManager, const QueueManagerFiles& files)
{
    const Verdict verdict =
        VerifyFiles(files, [](const std::wstring& strLine) { PrintLine(stderr, strLine); });
    const std::wstring strCounts = L"Queue manager '" + queueManager.strName + L"': " +
                                   std::to_wstring(verdict.nFiles) + L" files, " +
                                   std::to_wstring(verdict.nRecords) + L" records";
    if (verdict.nDamaged > 0)
        return Fail(EXIT_DAMAGED,
                    strCounts + L"; files missing or damaged: " + std::to_wstring(verdict.nDamaged));
    PrintLine(stdout, strCounts + L", all whole.");
    return EXIT_DONE;
}

int Start(const QueueManager& queueManager, const QueueManagerFiles& files, bool fRefuse)
{
    const std::wstring strWho = L"Queue manager '" + queueManager.strName + L"' ";
    if (IsRunning(queueManager.runObjects))
        return Fail(EXIT_NOT_STARTED, strWho + L"runs already.");
    if (StartDetached(queueManager, fRefuse))
    {
        PrintLine(stdout, strWho + L"started.");
        return EXIT_DONE;
    }
    // The background process has no console to tell the reason on.
    const int nResult = Verify(queueManager, files);
    return Fail(nResult == EXIT_DAMAGED ? EXIT_DAMAGED : EXIT_NOT_STARTED,
                strWho + L"did not start; 'sampleqm run " + queueManager.strName + L"' tells why.");
}
} // namespace

extern "C" int wmain(int argc, wchar_t** argv)
{
    RestrictLibrarySearch();
    Words words;
    if (!Parse({argv + 1, argv + argc}, words))
        return Fail(EXIT_USAGE, USAGE);
    const CommonServices services;
    if (services.Result() != 0)
    {
        services.ReportFailure();
        return EXIT_CONFIGURATION;
    }
    if (words.strVerb == L"create")
        return Create(words);
    if (words.strVerb != L"start" && words.strVerb != L"run" && words.strVerb != L"verify")
        return Fail(EXIT_USAGE, USAGE);
    const auto queueManager = FindQueueManager(words.strName);
    const auto files = queueManager ? FilesOf(*queueManager) : std::nullopt;
    if (!files)
        return Fail(EXIT_CONFIGURATION,
                    L"There is no queue manager '" + words.strName +
                        L"', or its stanza in zns.ini or the LogPath in its qm.ini cannot be used.\n"
                        L"Check the name, letter case too, and both files.");
    if (words.strVerb == L"verify")
        return Verify(*queueManager, *files);
    if (words.strVerb == L"start")
        return Start(*queueManager, *files, words.fRefuse);
    return Run(*queueManager, *files, {words.fRefuse, words.strReadyEvent});
}
