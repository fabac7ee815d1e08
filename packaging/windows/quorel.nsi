; SPDX-License-Identifier: MIT
; The installer for Windows on x64:
;   makensis -DFILES=FOLDER -DLIST=LIST -DOUT=quorel-setup.exe -DVERSION=0.2.0 [-DSIGN=COMMAND] quorel.nsi
; FOLDER holds what is to be installed, LIST the line for each of its files that removes it. SIGN signs the uninstaller in place.
;
; Setup enters what regsvr32 enters and keeps what stood there before in the folder `before`; removal takes all of it away and puts
; back what an earlier installation had, if that one's module is still there. A module that an engine has loaded is set aside
; under another name, which needs no restart; the restart by which the engine takes the new one is offered, never forced.
;   /S       asks nothing and restarts nothing; result 3010 says that an engine still has the earlier module
;   /D=PATH  the folder, as the last word and without quotation marks

Unicode true
Target amd64-unicode
Name "QUOREL ${VERSION}"
OutFile "${OUT}"
InstallDir "$PROGRAMFILES64\ZELTA"
RequestExecutionLevel admin
SetCompressor /SOLID lzma
ShowInstDetails show
ShowUninstDetails show
!ifdef SIGN
!uninstfinalize '${SIGN} "%1"' = 0
!endif

!include LogicLib.nsh
!include x64.nsh

!define CLASS "{5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44}"
!define CLASS_KEY "CLSID\${CLASS}"
!define ENTRY_KEY "AudioEngine\AudioProcessingObjects\${CLASS}"
!define REMOVAL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\ZELTA"
!define RESTART_REQUIRED 3010 ; ERROR_SUCCESS_REBOOT_REQUIRED, as other installers tell it

VIProductVersion "${VERSION}.0"
VIAddVersionKey ProductName "QUOREL"
VIAddVersionKey ProductVersion "${VERSION}"
VIAddVersionKey FileVersion "${VERSION}"
VIAddVersionKey FileDescription "QUOREL setup"
VIAddVersionKey LegalCopyright "Copyright 2026 the QUOREL authors"
VIAddVersionKey Comments "Responses: HRTF measurement of a KEMAR head, Bill Gardner and Keith Martin, MIT Media Lab, 1994"

Page license
Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles
LicenseData "${FILES}\LICENSE.txt"

Var InUse ; 1: an engine has the module that is replaced or removed

; Sets aside ZELTA.dll, which may be in use, under a name that is free, and deletes it if nobody has it.
!macro SetAside
    StrCpy $InUse 0
    ${If} ${FileExists} "$INSTDIR\ZELTA.dll"
        Delete "$INSTDIR\ZELTA.dll"
        ${If} ${FileExists} "$INSTDIR\ZELTA.dll"
            StrCpy $InUse 1
            GetTempFileName $1 "$INSTDIR"
            Delete $1
            ClearErrors
            Rename "$INSTDIR\ZELTA.dll" $1
            ${If} ${Errors}
                DetailPrint "$INSTDIR\ZELTA.dll can be neither replaced nor renamed"
                SetErrorLevel 2
                Abort
            ${EndIf}
            Delete /REBOOTOK $1
        ${EndIf}
    ${EndIf}
!macroend

!macro OfferRestart
    ${If} $InUse = 1
        SetErrorLevel ${RESTART_REQUIRED}
        MessageBox MB_YESNO|MB_ICONQUESTION "The audio service still runs the earlier module. Restart the service now? \
Sound stops for some seconds. Otherwise the change takes effect when the machine is started next." /SD IDNO IDNO later
        nsExec::ExecToLog 'net stop audiosrv /y'
        Pop $0
        nsExec::ExecToLog 'net start audiosrv'
        Pop $0
        SetErrorLevel 0
        later:
    ${EndIf}
!macroend

; Writes KEY of HKEY_CLASSES_ROOT to FILE, if there is such a key.
!macro Keep KEY FILE
    nsExec::Exec '"$SYSDIR\reg.exe" export "HKCR\${KEY}" "$INSTDIR\before\${FILE}" /y'
    Pop $0
!macroend

!macro PutBack
    ReadINIStr $1 "$INSTDIR\before\module.ini" before module
    DeleteRegKey HKCR "${CLASS_KEY}"
    DeleteRegKey HKCR "${ENTRY_KEY}"
    ${If} $1 != ""
    ${AndIf} ${FileExists} $1
        nsExec::Exec '"$SYSDIR\reg.exe" import "$INSTDIR\before\class.reg"'
        Pop $0
        nsExec::Exec '"$SYSDIR\reg.exe" import "$INSTDIR\before\entry.reg"'
        Pop $0
    ${EndIf}
!macroend

Function .onInit
    SetRegView 64
    ${IfNot} ${RunningX64}
        MessageBox MB_OK|MB_ICONSTOP "QUOREL needs Windows on x64." /SD IDOK
        SetErrorLevel 2
        Quit
    ${EndIf}
    ; An upgrade goes where the earlier version lies.
    ReadRegStr $0 HKLM "${REMOVAL_KEY}" InstallLocation
    ${If} $0 != ""
        StrCpy $INSTDIR $0
    ${EndIf}
FunctionEnd

Function un.onInit
    SetRegView 64
FunctionEnd

Section
    ; Of an upgrade, what stood there before the first version is what counts.
    ReadRegStr $0 HKLM "${REMOVAL_KEY}" InstallLocation
    ${If} $0 == ""
        CreateDirectory "$INSTDIR\before"
        ReadRegStr $1 HKCR "${CLASS_KEY}\InprocServer32" ""
        WriteINIStr "$INSTDIR\before\module.ini" before module $1
        !insertmacro Keep "${CLASS_KEY}" class.reg
        !insertmacro Keep "${ENTRY_KEY}" entry.reg
    ${EndIf}

    !insertmacro SetAside
    SetOutPath "$INSTDIR"
    ClearErrors
    File /r "${FILES}\*"
    ${If} ${Errors}
        SetErrorLevel 2
        Abort "The files could not be written"
    ${EndIf}

    ExecWait '"$SYSDIR\regsvr32.exe" /s "$INSTDIR\ZELTA.dll"' $0
    ${If} $0 <> 0
        !insertmacro PutBack
        Delete "$INSTDIR\ZELTA.dll"
        SetErrorLevel 2
        Abort "The module could not be registered: regsvr32 says $0"
    ${EndIf}

    WriteUninstaller "$INSTDIR\uninstall.exe"
    WriteRegStr HKLM "${REMOVAL_KEY}" DisplayName "QUOREL"
    WriteRegStr HKLM "${REMOVAL_KEY}" DisplayVersion "${VERSION}"
    WriteRegStr HKLM "${REMOVAL_KEY}" Publisher "the QUOREL authors"
    WriteRegStr HKLM "${REMOVAL_KEY}" InstallLocation "$INSTDIR"
    WriteRegStr HKLM "${REMOVAL_KEY}" UninstallString '"$INSTDIR\uninstall.exe"'
    WriteRegStr HKLM "${REMOVAL_KEY}" QuietUninstallString '"$INSTDIR\uninstall.exe" /S'
    WriteRegDWORD HKLM "${REMOVAL_KEY}" NoModify 1
    WriteRegDWORD HKLM "${REMOVAL_KEY}" NoRepair 1
    !insertmacro OfferRestart
SectionEnd

Section Uninstall
    ; What regsvr32 /u leaves or refuses goes with the keys.
    ExecWait '"$SYSDIR\regsvr32.exe" /u /s "$INSTDIR\ZELTA.dll"' $0
    !insertmacro PutBack
    DeleteRegKey HKLM "${REMOVAL_KEY}"
    !insertmacro SetAside

    ; Only what setup has put there.
    !include "${LIST}"
    Delete "$INSTDIR\before\class.reg"
    Delete "$INSTDIR\before\entry.reg"
    Delete "$INSTDIR\before\module.ini"
    RMDir "$INSTDIR\before"
    Delete "$INSTDIR\uninstall.exe"
    SetOutPath "$TEMP"
    RMDir /REBOOTOK "$INSTDIR"
    !insertmacro OfferRestart
SectionEnd
