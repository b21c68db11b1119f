// The class-library subset that the command is written against: run-time class names, the application object
// and the walk over the command line. There is no window and no message loop behind it.
#pragma once

#include <windows.h>

#include "afxstr.h"

struct CRuntimeClass
{
    const char* m_lpszClassName;
};

// Root of the classes whose name can be asked at run time.
class CObject
{
  public:
    virtual ~CObject() = default;
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

    virtual const CRuntimeClass* GetRuntimeClass() const;

  protected:
    CObject() = default;
};

// A map of message handlers. Those of the command have no entries; they only chain to the base class's map.
struct AFX_MSGMAP
{
    const AFX_MSGMAP* (*pfnGetBaseMap)();
};

class CCmdTarget : public CObject
{
  protected:
    virtual const AFX_MSGMAP* GetMessageMap() const;
    static const AFX_MSGMAP* GetThisMessageMap();
};

class CWinThread : public CCmdTarget
{
  public:
    virtual BOOL InitInstance();
    virtual int ExitInstance();
};

// One word of the command line at a time, as CWinApp::ParseCommandLine hands them over.
class CCommandLineInfo
{
  public:
    virtual ~CCommandLineInfo() = default;

    // pszParam: the word, for a switch without its leading '/' or '-'. The base class keeps nothing of it.
    virtual void ParseParam(const wchar_t* pszParam, BOOL fFlag, BOOL fLast);
};

// The application object: one to a program, made before and destroyed after the entry function.
class CWinApp : public CWinThread
{
  public:
    // lpszAppName: null for a program without a name of its own.
    explicit CWinApp(const wchar_t* lpszAppName = nullptr);
    ~CWinApp() override;

    BOOL InitInstance() override;
    int ExitInstance() override;

    // Hands the words of the process's command line, from the second to the last, to cmdInfo.
    void ParseCommandLine(CCommandLineInfo& cmdInfo);

  private:
    friend BOOL AfxWinInit(HINSTANCE, HINSTANCE, wchar_t*, int);

    CString m_strAppName;
    HINSTANCE m_hInstance = nullptr;
    wchar_t* m_lpCmdLine = nullptr;
};

// Binds the framework to the program. False if there is no application object, module or command line, or if
// a previous instance is named, which no system since the 16-bit ones has.
BOOL AfxWinInit(HINSTANCE hInstance, HINSTANCE hPrevInstance, wchar_t* lpCmdLine, int nCmdShow);

// The application object, or null outside its life.
CWinApp* AfxGetApp();

// The module that holds string resource nID: the program itself, the only module of its own that it has.
HINSTANCE AfxFindStringResourceHandle(UINT nID);
