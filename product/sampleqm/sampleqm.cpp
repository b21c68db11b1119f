// A small queue manager to move: made, started, verified from the command line. All its places come from the
// configuration each time, so that it runs where the configuration says.
#include <windows.h>

#include <string>
#include <vector>

#include "inifile.h"
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
    L"Usage: sampleqm create QM /dd prefix /ld logparent [/files N] [/multiinstance]\n"
    L"       sampleqm start QM [/refuse]   in the background, once it is active\n"
    L"       sampleqm run QM [/refuse]     until the end command ends it\n"
    L"       sampleqm verify QM            checks every record\n"
    L"Exit status: 0 done, 1 wrong usage, 2 no such queue manager or its configuration\n"
    L"  cannot be used, 3 files missing or damaged, 4 runs already or did not start,\n"
    L"  5 the system failed";

struct Words
{
    std::wstring strVerb;
    std::wstring strName;
    std::wstring strDataPrefix;
    std::wstring strLogParent;
    std::wstring strReadyEvent;
    std::wstring strFiles = L"200";
    unsigned nFiles = 0;
    bool fMultiInstance = false;
    bool fRefuse = false;
};

int Fail(ExitCode eCode, const std::wstring& strText)
{
    PrintLine(stderr, strText);
    return eCode;
}

// Letters, digits and . _ / % as the product allows them, at most 48.
bool IsQueueManagerName(const std::wstring& strName)
{
    constexpr size_t MAX_NAME = 48;
    constexpr wchar_t ALLOWED[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._/%";
    return !strName.empty() && strName.size() <= MAX_NAME &&
           strName.find_first_not_of(ALLOWED) == std::wstring::npos;
}

bool ParseCount(const std::wstring& strText, unsigned& nCount)
{
    constexpr size_t MAX_DIGITS = 6;
    if (strText.empty() || strText.size() > MAX_DIGITS ||
        strText.find_first_not_of(L"0123456789") != std::wstring::npos)
        return false;
    nCount = static_cast<unsigned>(std::stoul(strText));
    return true;
}

// Where a word's value goes, or the flag that it sets; both null for a word that is none.
struct Meaning
{
    std::wstring* pValue = nullptr;
    bool* pFlag = nullptr;
};

Meaning MeaningOf(const std::wstring& strWord, Words& parsed)
{
    const std::pair<std::wstring_view, Meaning> meanings[] = {
        {L"/dd", {&parsed.strDataPrefix}},        {L"/ld", {&parsed.strLogParent}},
        {L"/ready", {&parsed.strReadyEvent}},     {L"/files", {&parsed.strFiles}},
        {L"/refuse", {nullptr, &parsed.fRefuse}}, {L"/multiinstance", {nullptr, &parsed.fMultiInstance}}};
    for (const auto& [strName, meaning] : meanings)
        if (strWord == strName)
            return meaning;
    return {};
}

bool Parse(const std::vector<std::wstring>& words, Words& parsed)
{
    if (words.size() < 2)
        return false;
    parsed.strVerb = words[0];
    parsed.strName = words[1];
    for (size_t n = 2; n < words.size(); ++n)
    {
        const Meaning meaning = MeaningOf(words[n], parsed);
        if (meaning.pFlag != nullptr)
            *meaning.pFlag = true;
        else if (meaning.pValue != nullptr && n + 1 < words.size())
            *meaning.pValue = words[++n];
        else
            return false;
    }
    return IsQueueManagerName(parsed.strName) && ParseCount(parsed.strFiles, parsed.nFiles);
}

// A file's name cannot hold every character that a queue manager's name can.
std::wstring DirectoryNameOf(std::wstring strName)
{
    for (wchar_t& ch : strName)
        ch = ch == L'.' ? L'!' : ch == L'/' ? L'&' : ch;
    return strName;
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
    const std::wstring strDirectory = DirectoryNameOf(words.strName);
    const QueueManagerFiles files = {words.strDataPrefix + L"\\qmgrs\\" + strDirectory,
                                     words.strLogParent + L"\\" + strDirectory};
    std::wstring strFailed;
    if (const DWORD nError = CreateFiles(files, words.nFiles, strFailed))
        return Fail(EXIT_SYSTEM, strFailed + L": " + ErrorText(nError));

    // Last of all, so that no queue manager is known that is not whole.
    char szIni[XCS_PATH_SIZE];
    uint32_t nFileType = 0;
    const auto strName = Narrow(words.strName);
    const auto strNarrowDirectory = Narrow(strDirectory);
    const auto strPrefix = Narrow(words.strDataPrefix);
    if (!strName || !strNarrowDirectory || !strPrefix || xcsGetIniFilename(nullptr, szIni, &nFileType) != 0)
        return Fail(EXIT_CONFIGURATION,
                    L"zns.ini cannot hold these names: use characters of the system's code page.");
    const std::string strInstallation = PrimaryInstallationName();
    const DWORD nError = ReplaceFileContent(WidenForDisplay(szIni), [&](std::string strText) {
        IniFile::Attributes attributes = {{"Name", *strName},
                                          {"Prefix", *strPrefix},
                                          {"Directory", *strNarrowDirectory},
                                          {"InstallationName", strInstallation}};
        if (words.fMultiInstance)
            attributes.emplace_back("MultiInstance", "Yes");
        return IniFile(std::move(strText)).AddStanza("QueueManager", attributes);
    });
    if (nError != ERROR_SUCCESS)
        return Fail(EXIT_SYSTEM, WidenForDisplay(szIni) + L": " + ErrorText(nError));
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
