// Whole runs of the shipped program where the platform's copy, a link, a path or another program would cost
// data.
#include <gmock/gmock.h>

#include <regex>

#include "states.h"

using testing::HasSubstr;

namespace
{
// Moments of a move.
constexpr char COPIED[] = "SHFileOperationW:1:w:0:0";      // data copied, not yet compared
constexpr char BOTH_COPIED[] = "SHFileOperationW:2:w:0:0"; // and the log
constexpr char SECURED[] = "SetCurrentDirectoryW:4:w:0:0"; // both compared, rights set
constexpr char BETWEEN[] = "xcsIniUtilWrite:1:w:0:0";      // between the two changes
constexpr char CHANGED[] = "xcsIniUtilWrite:2:w:0:0";      // before the deletion
// What the trace tells.
constexpr char NAMES[] = "has other names", OTHERS[] = "belongs to another queue manager";
constexpr char OLD[] = "leads to a directory or file of an old|through a link";
constexpr char NEW[] = "is a new directory", SHARED[] = "Two directories would be copied";
constexpr char ZNS_INI[] = "is the directory of zns.ini", UNLISTED[] = "cannot be listed";
constexpr char TOO_LONG[] = "too long in the new place: ", LENGTH[] = "another size";
constexpr char MISSING[] = "missing|cannot be listed", TIME[] = "another time";
constexpr char LINK[] = "leads to a directory or file|Another directory|A link stands";
constexpr char APPEARED[] = "was not there before";

#define LOG_PATH "write OD\\qm.ini Log:\n   LogPath="
constexpr char NO_COPY[] = "SHFileOperationW:1:a:7c:0";
constexpr unsigned SILENT = 1; // instead of a message: nothing is printed
} // namespace

// Names of the command line and of the configuration, what lies in a destination, what a destination is, what
// fails, and what somebody does on the way: the move ends before anything is lost, and nothing is deleted
// that is not in the other tree.
TEST(Safety, MoveEndsBeforeAnythingIsLost)
{
    const std::string strLongest = LOG_PATH "D:\\" + std::string(128, 'l') + "\\" + std::string(129, 'm');
    const struct
    {
        std::string strBefore = "";               // what is done before the move
        const char* pszFinding = "";              // regular expression for the trace
        const char *pszFault = "", *pszThen = ""; // what fails, or when to pause; what is done then
        unsigned nMessage = 38;
        std::wstring strNewData = L"newdata", strNewLog = L"newlog"; // below the root
        std::wstring strName = L"QM1";
        const char* pszState = nullptr; // at the end, with the rest unchanged
    } cases[] = {
        // Names.
        {.nMessage = 32, .strName = L"qm1", .pszState = UNCHANGED},
        {.nMessage = 32, .strName = std::wstring(300, L'Q'), .pszState = UNCHANGED},
        {.nMessage = 32, .strName = L"\xD800%n", .pszState = UNCHANGED},
        {.nMessage = 0, .strNewLog = L"newlog\" \"", .strName = L"\"\"", .pszState = UNCHANGED},
        {.strBefore = "configured Directory=QM!1 Directory=..", .nMessage = 32, .pszState = UNCHANGED},
        {.strBefore = "configured Name=Inst1 Name=Inst2", .nMessage = 32, .pszState = UNCHANGED},
        {.nMessage = 42, .strNewData = L"newdata\\", .strNewLog = L"oldlog", .pszState = UNCHANGED},
        {.nMessage = 37, .strNewLog = L"newlog:stream", .pszState = NOTHING_LOST},
        {.nMessage = 37, .strNewData = L"newdata::$INDEX_ALLOCATION", .pszState = NOTHING_LOST},
        {.nMessage = 37, .strNewLog = L"x\\..\\oldlog", .pszState = NOTHING_LOST},
        {.nMessage = 37, .strNewLog = L"\\\\?\\C:\\b", .pszState = UNCHANGED},
        // Whole drives are at stake where one of these is not refused.
        {LOG_PATH "C:", "", NO_COPY, "", 0},
        {LOG_PATH "C:\\", "", NO_COPY, "", 0},
        {LOG_PATH "..", "", NO_COPY, "", 0},
        {LOG_PATH, "", NO_COPY, "", 0},
        {strLongest, UNLISTED, NO_COPY},
        {strLongest + "x", "", NO_COPY, "", 0},
        // Steps that fail.
        {.pszFault = "xcsGetQMDetails:6:o:1:0", .nMessage = 32, .pszState = UNCHANGED},
        {.pszFault = "xcsGetQMDetails:7:o:1:0", .nMessage = 32, .pszState = UNCHANGED},
        {.pszFault = "xcsIsSubpoolActive:1:a:0:0", .nMessage = 33, .pszState = UNCHANGED}, // no end command
        {.pszFault = "CreateMutexW:1:o:0:5", .nMessage = 33, .pszState = UNCHANGED},
        {.pszFault = "SHFileOperationW:2:o:7c:0", .pszState = "data ++ log +~ zns old qm old"},
        {.pszFinding = "attrib -r",
         .pszFault = SECURED,
         .pszThen = "protect ND\\qm.ini",
         .nMessage = 39,
         .pszState = COPIED_TWICE},
        {.pszFault = "DeleteFileW:2:o:0:20", .nMessage = 40, .pszState = "data ~+ log ++ zns new qm new"},
        {.pszFault = "DeleteFileW:6:a:0:20", .nMessage = 40, .pszState = "data -+ log ++ zns new qm new"},
        {.pszFault = "DeleteFileW:7:a:0:20", .nMessage = 40, .pszState = "data -+ log ~+ zns new qm new"},
        // Ctrl+C before the configuration is changed.
        {.pszFault = "xcsGetQMDetails:1:c:0:0", .nMessage = SILENT, .pszState = UNCHANGED},
        {.pszFault = "SHFileOperationW:2:c:0:0", .nMessage = SILENT, .pszState = COPIED_TWICE},
        // Before the copy.
        {"write OD\\lock data;write OL\\lock log;write ND\\lock;hard NL\\lock ND\\lock", NAMES},
        {"write NL\\active\\log1;hard NL\\active\\x\\log2 NL\\active\\log1", NAMES},
        {"hard ND\\a OD\\s\\t\\c", NAMES},
        {"hard NL\\ctl OD\\a", NAMES},
        {"link ND\\a OD\\s\\t\\c", OLD},
        {"link NL\\ctl OD\\a", OLD},
        {"link ND\\a OD\\a", OLD},
        {"link ND\\s OL\\active", OLD},
        {"link ND\\s OL\\active", OLD, "GetFileInformationByHandleEx:1:a:0:57"}, // without identifiers
        {"write ND\\qm.ini Channels:", OTHERS},
        {"write ND;remove ND;write ND\\b;copy ND\\qm.ini OD\\qm.ini;append ND\\qm.ini Channels:", OTHERS},
        {"write ND\\b;copy ND\\qm.ini OD\\qm.ini;manager qm!1 R\\NewData",
         OTHERS}, // which could be this one's
        {"move R\\QM!1 W;link W R\\QM!1;write OL\\zns.ini log", ZNS_INI, "", "", 38, L"newdata", L""},
        {"link ND\\s W;write OD\\s\\zns.ini data", ZNS_INI},
        {"link OD\\link W", ZNS_INI},
        {"", NEW, "", "", 38, L"OLDDATA"},
        {"", NEW, "", "", 38, L"newdata", L"OldLog"},
        {"write OD\\s\\qmgrs\\QM!1\\x", NEW, "", "", 38, L"olddata\\qmgrs\\QM!1\\s"},
        {"", NEW, "", "", 38, L"newdata", L"olddata\\qmgrs"},
        {"link R\\link OD\\s", NEW, "", "", 38, L"newdata", L"link"},
        {"link OL\\link ND", NEW},
        {"link R\\newlog R\\newdata\\qmgrs", SHARED},
        {"write NL\\active\\y;link ND\\s NL\\active", SHARED},
        {"link OD\\s\\up OD", "A link leads back"},
        {"move R\\gone OL", UNLISTED},
        {"move R\\gone OL;write OL", UNLISTED},
        {"", UNLISTED, "FindFirstFileExW:2:o:ffffffffffffffff:5"},     // a directory that may not be read
        {"", UNLISTED, "FindNextFileW:3:o:0:5"},                       // and one that cannot be to its end
        {"file OL 259", TOO_LONG, "", "", 38, L"newdata", L"newlogs"}, // files may have 259 characters,
        {"directory OD 247", TOO_LONG, "", "", 38, L"newdatas"},       // directories 247
        {"directory OD 248", "The path is too long to be copied: ", "", "", 38, L"n"},
        // The platform's copy says nothing of these.
        {"hold OD\\a", "missing: "},
        {"write NL\\ctl;hold NL\\ctl", LENGTH},
        {"write ND\\a\\x", "place of a file"},
        {"write ND\\s", UNLISTED},
        // On the way.
        {"", LENGTH, COPIED, "cut ND\\a"},
        {"", MISSING, COPIED, "remove ND\\a"},
        {"", LENGTH, BOTH_COPIED, "cut NL\\active\\x\\log2"},
        {"", MISSING, BOTH_COPIED, "remove NL\\active\\x\\log2"},
        {"", LINK, COPIED, "swap ND\\s OD\\s"},
        {"", LINK, COPIED, "swap ND\\s\\t\\u OD\\s\\t\\u"},
        {"", LINK, BOTH_COPIED, "swap NL OL"},
        {"", TIME, COPIED, "round ND"},
        {"", TIME, BOTH_COPIED, "flip ND\\a"},
        {"", LINK, SECURED, "swap ND\\s OD\\s"},
        {"", LINK, SECURED, "swap OD\\s ND\\s"},
        {"", LINK, SECURED, "swap OL NL"},
        {"", MISSING, SECURED, "remove ND\\a"},
        {"", MISSING, SECURED, "remove NL\\active\\x\\log2"},
        {"", LINK, SECURED, "move R\\s OD\\s;copy OD\\s R\\s"},
        {"", APPEARED, SECURED, "write OD\\0 new"},
        {"", APPEARED, SECURED, "write OL\\z new"},
        {"", MISSING, SECURED, "move R\\aside OL"},
        {"", LINK, BETWEEN, "swap ND\\s OD\\s", 40},
        {"", LINK, BETWEEN, "swap NL OL", 40},
        {"", LINK, BETWEEN, "swap OD\\s ND\\s", 40},
        {"", LINK, BETWEEN, "swap OL NL", 40},
        {"", TIME, BETWEEN, "flip ND\\a", 40},
        {"", MISSING, CHANGED, "remove ND\\a", 40},
        {"", MISSING, CHANGED, "remove NL\\active\\x\\log2", 40},
        {"", MISSING, CHANGED, "move R\\gone R\\newlog", 40},
        {"", LINK, CHANGED, "move R\\s OD\\s;copy OD\\s R\\s", 40},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases << " " << c.strBefore << c.pszThen);
        Installation zn;
        zn.Do(c.strBefore);
        if (!zn.held)
            zn.Remember();
        const RunResult result =
            zn.Traced(zn.MoveWords(c.strName, c.strNewData, c.strNewLog), c.pszFault, c.pszThen);
        zn.held.Close();
        EXPECT_EQ(result.nStatus, FAILED);
        EXPECT_EQ(result.strOut, "");
        EXPECT_EQ(result.strErr, c.nMessage == SILENT ? "" : Message(c.nMessage) + USAGE);
        EXPECT_TRUE(std::regex_search(zn.strTrace, std::regex(c.pszFinding))) << zn.strTrace;
        const std::string strState = zn.State();
        EXPECT_EQ(strState.find("zns old") != std::string::npos, c.nMessage < 40 || c.nMessage == 42);
        if (c.pszState != nullptr)
        {
            EXPECT_TRUE(IsState(strState, c.pszState) && zn.IsRestUntouched()) << strState;
            continue;
        }
        // Each file by its bytes, wherever somebody has put it.
        const Snapshot all = TakeSnapshot(zn.root);
        for (const Snapshot* const pTree : {&zn.data, &zn.log})
            for (const auto& entry : *pTree)
                EXPECT_TRUE(std::ranges::any_of(all, [&](const auto& now) {
                    return now.second == entry.second;
                })) << fs::path(entry.first);
        if (zn.strTrace.find("Nothing is copied") != std::string::npos)
            EXPECT_THAT(zn.strTrace, testing::Not(HasSubstr("Copying '")));
    }
}

// Two moves at a time: not of one queue manager, not of two with the same directory name into one directory,
// in whatever spelling, but of these into two.
TEST(Safety, TwoMovesNeverShareATree)
{
    const std::tuple<const wchar_t*, const wchar_t*, unsigned> cases[] = {
        {L"QM1", L"third", 33}, {L"QM2", L"NEWDATA", 38}, {L"QM2", L"third", 0}};
    for (const auto& [pszName, pszNewData, nMessage] : cases)
    {
        Installation zn;
        zn.Do("manager QM!1 R\\second");
        WriteAll(zn.root / "second\\qmgrs\\QM!1\\qm.ini",
                 "Log:\n   LogPath=" + zn.root.string() + "\\secondlog\\QM!1\n");
        WriteAll(zn.root / "secondlog\\QM!1\\ctl", "second");
        RunResult second;
        const RunResult first =
            zn.Run(zn.MoveWords(), "SHFileOperationW:2:w:0:0", [&, p = pszName, pszTo = pszNewData] {
                const std::wstring strWords = zn.MoveWords(p, pszTo, "thirdlog");
                second = RunProgram(ProgramFolder() / "tarvel.exe", strWords, zn.root);
            });
        EXPECT_EQ(first.nStatus, 0u);
        EXPECT_EQ(second.strErr, nMessage != 0 ? Message(nMessage) + USAGE : "");
        EXPECT_EQ(zn.State().substr(0, 14), "data -+ log -+");
        EXPECT_EQ(ReadAll(zn.root / (nMessage != 0 ? "secondlog" : "thirdlog") / "QM!1\\ctl"), "second");
        EXPECT_EQ(fs::exists(zn.root / "second\\qmgrs\\QM!1"), nMessage != 0);
    }
}

// What an earlier run left, names and volumes that look odd, old trees in one another, Ctrl+C once the
// configuration is changed, and configuration files that somebody has open for a moment.
TEST(Safety, MovesThatLoseNothingAreNotRefused)
{
    const struct
    {
        const char *pszEarlier = "", *pszBefore = ""; // what failed in an earlier run; what was done then
        const char *pszPrefix = "olddata", *pszLogPath = "oldlog\\QM!1\\"; // below the root
        const char *pszNewData = "newdata", *pszNewLog = "newlog";
        const char *pszVolume = "", *pszFault = "xcsTerminate:0:o:0:0", *pszThen = "";
    } cases[] = {
        {"xcsCreateDirectory:2:o:1:0"},
        {"SHFileOperationW:1:o:7c:0"},
        {"SHFileOperationW:2:k:0:0"},
        {"SHFileOperationW:2:k:0:0", "zeros ND\\qm.ini"}, // a copy that was cut off
        {"SetNamedSecurityInfoW:9:a:5:5"},
        {"xcsIniUtilWrite:1:o:1:0"},
        {"xcsIniUtilWrite:1:k:0:0"},
        {"DeleteFileW:1:o:0:20"},
        {.pszBefore = "write NL\\ctl old;write ND\\a old"},
        {.pszNewData = "newdata\\\\x"},
        {.pszNewData = "newdata//x//y"},
        {.pszPrefix = "\\olddata"},
        {.pszPrefix = ".\\olddata"},
        {.pszPrefix = "bystander/../olddata"},
        {.pszLogPath = "oldlog\\\\QM!1"},
        {.pszLogPath = ".\\oldlog/QM!1/"},
        {.pszBefore = "move OD\\QM!1 OL", .pszLogPath = "olddata\\qmgrs\\QM!1\\QM!1\\"},
        {.pszBefore = "move OD\\QM!1 OL",
         .pszLogPath = "olddata\\qmgrs\\QM!1\\QM!1\\",
         .pszNewLog = "newdata\\qmgrs\\QM!1"},
        {.pszBefore = "remove OL", .pszLogPath = "olddata\\qmgrs\\QM!1\\"}, // one directory for both
        {.pszBefore = "file OL 259;directory OD 247"},
        {.pszFault = "xcsGetQMDetails:3:o:1:0"}, // one failing query, and the next one answers again
        {.pszFault = "CreateMutexW:1:a:0:8"},
        {.pszFault = "xcsIniUtilWrite:1:c:0:0"},
        {.pszFault = "DeleteFileW:1:c:0:0"},
        {.pszFault = "xcsInitializeEx:1:w:0:0", .pszThen = "busy W\\zns.ini"},
        {.pszFault = "xcsGetQMDetails:2:w:0:0", .pszThen = "busy W\\zns.ini"},
        {.pszFault = "SHFileOperationW:2:w:0:0", .pszThen = "busy W\\zns.ini 7"}, // sharing all
        {.pszFault = "SetCurrentDirectoryW:4:w:0:0", .pszThen = "busy ND\\qm.ini"},
        {.pszVolume = "seconds", .pszFault = "SHFileOperationW:1:w:0:0", .pszThen = "round ND"},
        {.pszVolume = "zns.ini"},
        {.pszVolume = "Y:\\nowhere\\zns.ini"},
        {.pszVolume = "C:/zns.ini"},
        {.pszVolume = "behind"},
        {.pszVolume = "changing"},
        {.pszVolume = "blank"},
        {.pszVolume = "template"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        Installation zn;
        const std::string strRoot = zn.root.string() + "\\";
        if (*c.pszEarlier != '\0')
            zn.Run(zn.MoveWords(), c.pszEarlier);
        zn.Do(c.pszBefore);
        zn.Do("configured " + strRoot + "olddata " + strRoot + c.pszPrefix);
        WriteAll(zn.oldData / "qm.ini", "Log:\n   LogPath=" + strRoot + c.pszLogPath + "\n# kept");
        zn.Remember();
        zn.log = TakeSnapshot(zn.root / c.pszLogPath);
        SetEnvironmentVariableA("ZN_FAULTS_VOLUME", *c.pszVolume != '\0' ? c.pszVolume : nullptr);
        const RunResult result =
            zn.Traced(zn.MoveWords(L"QM1", c.pszNewData, c.pszNewLog), c.pszFault, c.pszThen);
        SetEnvironmentVariableW(L"ZN_FAULTS_VOLUME", nullptr);
        EXPECT_EQ(result.nStatus, 0u)
            << result.strErr << zn.strTrace.substr(zn.strTrace.rfind("Nothing is") % zn.strTrace.size(), 200);
        EXPECT_FALSE(fs::exists(zn.oldData));
        EXPECT_FALSE(fs::exists(zn.root / c.pszLogPath));
        EXPECT_EQ(TakeSnapshot(zn.root / c.pszNewLog / "QM!1"), zn.log);
        Snapshot moved = TakeSnapshot(zn.root / c.pszNewData / "qmgrs\\QM!1");
        EXPECT_THAT(moved[L"qm.ini"], HasSubstr("\\QM!1\\\n# kept"));
        EXPECT_THAT(moved[L"qm.ini"], HasSubstr(c.pszNewLog));
        moved[L"qm.ini"] = zn.data[L"qm.ini"];
        EXPECT_EQ(moved, zn.data);
    }
}

TEST(Safety, RunningQueueManagerIsStopped)
{
    Installation zn;
    fs::create_directories(zn.root / "inst\\bin64");
    for (const char* psz : {"endznm.exe", "tovxcs2.dll", "tovxzu.dll"})
        fs::copy_file(ProgramFolder() / psz, zn.root / "inst\\bin64" / psz);
    const auto sample = [&](const std::wstring& strWords) {
        return RunProgram(ProgramFolder() / "sampleqm.exe", strWords, zn.root).nStatus;
    };
    const auto end = [&] { return RunProgram(ProgramFolder() / "endznm.exe", L"-w QM2", zn.root).nStatus; };
    ASSERT_EQ(sample(L"create QM2 /files 20 /dd " + Quoted(zn.root / "d") + L" /ld " + Quoted(zn.root / "l")),
              0u);
    ASSERT_EQ(sample(L"start QM2"), 0u);
    const RunResult result = zn.Run(zn.MoveWords(L"QM2"));
    EXPECT_EQ(result.nStatus, 0u);
    EXPECT_EQ(result.strOut + result.strErr, "");
    EXPECT_FALSE(fs::exists(zn.root / "d\\qmgrs\\QM2"));
    EXPECT_EQ(sample(L"verify QM2"), 0u);
    EXPECT_EQ(end(), 3u); // not started again
}
