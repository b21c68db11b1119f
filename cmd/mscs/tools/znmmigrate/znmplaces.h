// Where a queue manager's directories are, as its configuration files say, and where a move takes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "afxwin.h"
#include "tovxcs2.h"

// A configuration file as the common services name it.
struct ConfigurationFile
{
    // Of a size that no library exceeds with a path, whatever bytes its code page needs for one.
    static constexpr size_t MAX_NAME = 4 * XCS_PATH_SIZE;
    char szName[MAX_NAME] = {};
    uint32_t nType = 0;

    // pszQueueManager: null for the product's own file. False if the common services do not know the file.
    bool Find(const char* pszQueueManager);

    // With its separator: without, the root of a drive would be the directory that the console remembers for
    // it. The current directory for a name alone.
    CString Directory() const;
};

// Reads where the queue manager's logs are, without a trailing backslash. False if its configuration does not
// say, or names what cannot be an old tree; strLogPath is then what was read of it.
bool ReadLogPath(const ConfigurationFile& qmIni, CString& strLogPath);

// Where the trees of a move are and where they go. Trees have no trailing backslash.
struct ZNPlaces
{
    CString strQueueManager;
    CString strSrcDataDir, strDestDataDir;
    CString strSrcLogDir, strDestLogDir;
    CString strConfiguration;    // zns.ini
    CString strConfigurationDir; // its directory
};

// The data and log directories of the other queue managers that the text of zns.ini names, as far as their
// qm.ini can be read. The library cannot be asked for them: it lists none.
struct ZNOtherPlaces
{
    CString strName, strDataDir, strLogDir;
};
std::vector<ZNOtherPlaces> ReadOtherPlaces(const CString& strConfiguration, const CString& strQueueManager);

// The new directories of a queue manager whose directory name is strDirectory.
CString NewDataDirectory(const CString& strDataDest, const CString& strDirectory);
CString NewLogDirectory(const CString& strLogDest, const CString& strDirectory);

// Whether two paths lead to one directory, in whatever spelling; where one of them is not there, whether
// Windows makes the same path of both but for the letter case and separators at the end.
bool ZNIsSamePlace(const CString& strLeft, const CString& strRight);

CString WithoutTrailingBackslash(const CString& strPath);
CString WithTrailingBackslash(const CString& strPath);
