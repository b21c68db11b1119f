// The subset of the class library that the command needs: run-time class names, message maps, the application
// object and the walk over the command line. It has no window and no message loop.
//
// Names and signatures are those of the class library, so that the command compiles against that as well. For
// the same reason sources include this header instead of windows.h.
#pragma once

#include <windows.h>

#include "afxstr.h"
#include "atlconv.h"

struct CRuntimeClass
{
    const char* m_lpszClassName;
};

// The root of the classes whose name can be queried at run time.
class CObject
{
  public:
    virtual ~CObject() = default;
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

    virtual CRuntimeClass* GetRuntimeClass() const;

  protected:
    CObject() = default;
};

// Give a class its run-time name: the first stands in the class, the second in its source.
#define DECLARE_DYNAMIC(class_name)                                                                          \
  public:                                                                                                    \
    CRuntimeClass* GetRuntimeClass() const override;

#define IMPLEMENT_DYNAMIC(class_name, base_class_name)                                                       \
    CRuntimeClass* class_name::GetRuntimeClass() const                                                       \
    {                                                                                                        \
        static CRuntimeClass s_class = {#class_name};                                                        \
        return &s_class;                                                                                     \
    }

// A map of message handlers. The maps here have no entries; each only leads to the map of the base class.
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

// Give a class its message map: the first stands in the class, the other two in its source.
#define DECLARE_MESSAGE_MAP()                                                                                \
  protected:                                                                                                 \
    static const AFX_MSGMAP* GetThisMessageMap();                                                            \
    const AFX_MSGMAP* GetMessageMap() const override;

#define BEGIN_MESSAGE_MAP(theClass, baseClass)                                                               \
    const AFX_MSGMAP* theClass::GetMessageMap() const                                                        \
    {                                                                                                        \
        return GetThisMessageMap();                                                                          \
    }                                                                                                        \
    const AFX_MSGMAP* theClass::GetThisMessageMap()                                                          \
    {                                                                                                        \
        static const AFX_MSGMAP s_map = {&baseClass::GetThisMessageMap};

#define END_MESSAGE_MAP()                                                                                    \
    return &s_map;                                                                                           \
    }

class CWinThread : public CCmdTarget
{
};

// Receives the command line from CWinApp::ParseCommandLine, one word at a time.
class CCommandLineInfo
{
  public:
    virtual ~CCommandLineInfo() = default;

    // pszParam: the word, without the first character if that is '/' or '-'. bFlag: it is. bLast: there is no
    // further word. The base class stores nothing.
    virtual void ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast);
};

// The application object. A program has exactly one, made before the entry function runs and destroyed after
// it.
class CWinApp : public CWinThread
{
  public:
    CWinApp();
    ~CWinApp() override;

    virtual BOOL InitInstance(); // returns TRUE
    virtual int ExitInstance();  // returns 0

    // Passes the words of the process's command line, from the second to the last, to rCmdInfo.
    void ParseCommandLine(CCommandLineInfo& rCmdInfo);
};

// Initialises the framework. Returns FALSE if there is no application object, module or command line, or if a
// previous instance is given, which only 16-bit systems had.
BOOL AfxWinInit(HINSTANCE hInstance, HINSTANCE hPrevInstance, wchar_t* lpCmdLine, int nCmdShow);
