<#
Moves sample queue managers in ways that only Windows can show. In an elevated console:

    powershell -ExecutionPolicy Bypass -File experiments.ps1 [-Only held,full] [-Results FOLDER]

Prints what it expected, what it saw, and ok or NOT OK. The exit status counts the latter. The folder "results" beside
this file, or the one that is named, gets the report, and the traces and records of every move. It makes a folder in the
root of the system drive, virtual disks in it, two shares, a local user, a scheduled task, and the group znm if that is
missing, and removes all of them. The programs are those of the folder "bin" beside this file.
#>
param([string[]]$Only = @(), [string]$Programs = "$PSScriptRoot\bin", [string]$Results = "$PSScriptRoot\results")

Set-StrictMode -Version 2.0
$ErrorActionPreference = 'Stop'
$work = "$env:SystemDrive\tarvel-experiments"
$tools = "$env:SystemRoot\System32"
$administrators, $system = 'S-1-5-32-544', 'S-1-5-18'
$moved = 'status 0, nothing printed, moved'
$movedWhole = "$moved, verify 0"
$refused = 'status -1, message 38, not moved'
$script:failures = 0
$undo = New-Object System.Collections.Stack # how to remove what was made, the last first

function Say([string]$text) {
    Write-Host $text
    Add-Content -LiteralPath "$Results\report.txt" -Value $text -Encoding UTF8
}

function SayFailure([string]$text) { $script:failures++; Say "NOT OK  $text" }

# Several expectations: any of them.
function Expect([string]$what, [string[]]$expected, [string]$seen) {
    if ($expected -contains $seen) { Say "ok      $what" } else { SayFailure $what }
    Say "          expected: $($expected -join '; or: ')"
    Say "          saw:      $seen"
}

function OnUndo([scriptblock]$step, [string]$argument = '') { $undo.Push(@{ Step = $step; Argument = $argument }) }

function UndoTo([int]$level) {
    while ($undo.Count -gt $level) {
        $made = $undo.Pop()
        try { & $made.Step $made.Argument | Out-Null } catch { SayFailure "cleaning up $($made.Argument): $_" }
    }
}

function Run([string]$program, [string]$words) {
    $info = New-Object System.Diagnostics.ProcessStartInfo -Property @{ FileName = $program; Arguments = $words
        UseShellExecute = $false; RedirectStandardOutput = $true; RedirectStandardError = $true
        WorkingDirectory = "$env:SystemDrive\" }
    $process = [System.Diagnostics.Process]::Start($info)
    $printed = $process.StandardOutput.ReadToEnd() + $process.StandardError.ReadToEnd()
    $process.WaitForExit()
    @{ Status = $process.ExitCode; Printed = $printed }
}

function Must([string]$program, [string]$words) {
    $run = Run $program $words
    if ($run.Status -ne 0) { throw "$program $words ended with $($run.Status): $($run.Printed)" }
}

function RemoveFolder([string]$folder) {
    Must "$tools\cmd.exe" "/d /c rd /s /q `"$folder`"" # enters no links
    if (Test-Path -LiteralPath $folder) { throw 'it is still there' }
}

# --- A queue manager, its move, and what came of it -------------------------------------------------------------------

# Of each file below a folder, by its path there.
function HashesOf([string]$folder) {
    $hashes = @{}
    Get-ChildItem -LiteralPath $folder -Recurse -Force -ErrorAction SilentlyContinue |
        Where-Object { -not $_.PSIsContainer } |
        ForEach-Object { $hashes[$_.FullName.Substring($folder.Length)] = (Get-FileHash -LiteralPath $_.FullName).Hash }
    $hashes
}

# Whether a folder has each of these files. A move changes one line of qm.ini.
function HasAll([string]$folder, [hashtable]$hashes, [string]$changed = '') {
    $now = HashesOf $folder
    @($hashes.Keys | Where-Object { $now[$_] -ne $hashes[$_] -and -not ($now[$_] -and $_ -eq $changed) }).Count -eq 0
}

# Takes what is there now for what must not get lost.
function Remember([hashtable]$case) {
    $case.Data, $case.Log = (HashesOf $case.OldData), (HashesOf $case.OldLog)
    $case.Zns = [System.IO.File]::ReadAllText($case.ZnsIni)
}

function SetNewPlace([hashtable]$case, [string]$new) {
    $case.NewPrefix, $case.NewData, $case.NewLog = "$new\data", "$new\data\qmgrs\QM1", "$new\log\QM1"
    $case.Words = "/m QM1 /dd `"$new\data`" /ld `"$new\log`""
}

function NewCase([string]$name, [string]$old = "$work\$name\old", [string]$new = "$work\$name\new") {
    $root = "$work\$name"
    New-Item -ItemType Directory -Path "$root\work" | Out-Null
    OnUndo {
        param($name)
        New-Item -ItemType Directory -Path "$Results\$name" -Force | Out-Null
        Copy-Item -Path "$work\$name\work\*" -Destination "$Results\$name" -Recurse -Force
        RemoveFolder "$work\$name"
    } $name
    $zns = 'Installation:', '   Name=I1', "   Path=$work", "   Identity=$name", '   Primary=Yes'
    Set-Content -LiteralPath "$root\work\zns.ini" -Value $zns -Encoding ASCII
    $env:ZN_WORK_PATH = "$root\work"
    Must "$work\bin64\sampleqm.exe" "create QM1 /dd `"$old\data`" /ld `"$old\log`" /files 30"
    $case = @{ Root = $root; ZnsIni = "$root\work\zns.ini"; OldPrefix = "$old\data"
        OldData = "$old\data\qmgrs\QM1"; OldLog = "$old\log\QM1" }
    SetNewPlace $case $new
    Remember $case
    $case
}

# The number of the first message is in the newest trace, whatever the language.
function Outcome([hashtable]$case, [int]$status, [string]$printed) {
    if (-not $printed) { return "status $status, nothing printed" }
    $trace = Get-ChildItem -Path "$($case.Root)\work\trace\*.trc" | Sort-Object LastWriteTime | Select-Object -Last 1
    if ($trace -and (Get-Content -LiteralPath $trace.FullName -Raw) -match 'nMessageID = (\d+)') {
        return "status $status, message $($Matches[1])"
    }
    "status $status, $printed"
}

function MoveIt([hashtable]$case) {
    $env:ZN_TRACE = 'detail'
    $run = Run "$work\bin64\tarvel.exe" $case.Words
    $env:ZN_TRACE = ''
    Outcome $case $run.Status $run.Printed
}

function StateOf([hashtable]$case) {
    $zns = [System.IO.File]::ReadAllText($case.ZnsIni)
    $changed = $case.Zns.Replace("Prefix=$($case.OldPrefix)`r", "Prefix=$($case.NewPrefix)`r")
    $old = (HasAll $case.OldData $case.Data) -and (HasAll $case.OldLog $case.Log)
    $new = (HasAll $case.NewData $case.Data '\qm.ini') -and (HasAll $case.NewLog $case.Log)
    $left = (Test-Path -LiteralPath $case.OldData) -or (Test-Path -LiteralPath $case.OldLog)
    if ($zns -eq $case.Zns -and $old) { return 'not moved' }
    if ($zns -eq $changed -and $new -and -not $left) { return 'moved' }
    "zns.ini as before $($zns -eq $case.Zns), as wanted $($zns -eq $changed), whole: old trees $old, new trees $new"
}

function See([hashtable]$case) { "$(MoveIt $case), $(StateOf $case)" }

# Likewise, with the queue manager's own look at its files.
function SeeWhole([hashtable]$case) { "$(See $case), $(Verify)" }

function Verify { "verify $((Run "$work\bin64\sampleqm.exe" 'verify QM1').Status)" }

function Check([hashtable]$case, [string]$verb, [string]$more) {
    Run "$work\bin64\tarvelcheck.exe" "$verb $($case.Words) $more"
}

# --- Access lists -----------------------------------------------------------------------------------------------------

# An object's own entries, without those that it inherits.
function EntriesOf([string]$path) {
    $list = Get-Acl -LiteralPath $path
    $entries = foreach ($rule in $list.GetAccessRules($true, $false, [System.Security.Principal.SecurityIdentifier])) {
        $mask = [int]$rule.FileSystemRights
        if ($mask -eq 0x10000000) { $mask = 0x1F01FF } # all rights, in their generic form
        '{0} {1} {2:X} {3}/{4}' -f $rule.AccessControlType, $rule.IdentityReference.Value, $mask,
            [int]$rule.InheritanceFlags, [int]$rule.PropagationFlags
    }
    "$(@($entries | Sort-Object) -join ', '), inherits $(-not $list.AreAccessRulesProtected)"
}

# Folders hand their entries down to folders and files (3).
function ExpectAccessLists([string]$what, [hashtable]$case, [string[]]$folders = @()) {
    $trees = $case.NewData, $case.NewLog
    $objects = @(Get-ChildItem -LiteralPath $trees -Recurse -Force) + @(Get-Item -LiteralPath ($trees + $folders))
    foreach ($kind in @{ Name = 'files'; Flags = 0 }, @{ Name = 'folders'; Flags = 3 }) {
        $entries = foreach ($sid in $administrators, $system, $znm) { "Allow $sid 1F01FF $($kind.Flags)/0" }
        $found = @($objects | Where-Object { $_.PSIsContainer -eq ($kind.Flags -ne 0) } |
                ForEach-Object { EntriesOf $_.FullName } | Sort-Object -Unique)
        Expect "$what, access lists of $($kind.Name)" "$(@($entries | Sort-Object) -join ', '), inherits True" `
            ($found -join '; and: ')
    }
}

# --- Virtual disks, other accounts ------------------------------------------------------------------------------------

# Returns the number of the disk. A copy of a disk that is attached comes offline.
function Attach([string]$image) {
    Mount-DiskImage -ImagePath $image -NoDriveLetter | Out-Null
    OnUndo { param($path) if ((Get-DiskImage $path).Attached) { Dismount-DiskImage -ImagePath $path } } $image
    $disk = Get-DiskImage -ImagePath $image | Get-Disk
    if ($disk.IsOffline) { Set-Disk -Number $disk.Number -IsOffline $false }
    Set-Disk -Number $disk.Number -IsReadOnly $false
    $disk.Number
}

# Gives the one volume of a disk a letter that is free. Returns "X:".
function Letter([int]$disk) {
    $letter = [string]@('TUVWXYS'.ToCharArray() | Where-Object { -not [System.IO.Directory]::Exists("${_}:\") })[0]
    Get-Partition -DiskNumber $disk | Select-Object -First 1 | Set-Partition -NewDriveLetter $letter
    Get-PSDrive -PSProvider FileSystem | Out-Null # PowerShell notices the new drive
    "${letter}:"
}

function NewVolume([string]$name, [int]$megabytes, [string]$fileSystem) {
    $image = "$work\$name.vhd"
    $words = "create vdisk file=`"$image`" maximum=$megabytes type=expandable"
    Set-Content -LiteralPath "$work\diskpart.txt" -Value $words -Encoding ASCII
    Must "$tools\diskpart.exe" "/s `"$work\diskpart.txt`""
    OnUndo { param($path) Remove-Item -LiteralPath $path } $image
    $disk = Attach $image
    Initialize-Disk -Number $disk -PartitionStyle MBR
    $partition = New-Partition -DiskNumber $disk -UseMaximumSize
    try { $partition | Format-Volume -FileSystem $fileSystem -Confirm:$false | Out-Null }
    catch { throw "skip: this Windows makes no volume with ${fileSystem}: $_" }
    Letter $disk
}

# The move by another account, as a scheduled task.
function ExpectMoveBy([string]$who, [hashtable]$case, [hashtable]$account) {
    $root = $case.Root
    Set-Content -LiteralPath "$root\run.cmd" -Encoding ASCII -Value '@echo off', 'set ZN_TRACE=detail',
        "set `"ZN_WORK_PATH=$root\work`"", "`"$work\bin64\tarvel.exe`" $($case.Words) >`"$root\out.txt`" 2>&1",
        "echo %ERRORLEVEL% >`"$root\status.new`"", "ren `"$root\status.new`" status.txt"
    $action = New-ScheduledTaskAction -Execute "$tools\cmd.exe" -Argument "/d /c `"$root\run.cmd`""
    $settings = New-ScheduledTaskSettingsSet -AllowStartIfOnBatteries
    Register-ScheduledTask -TaskName 'tarvel-experiment' -Action $action -Settings $settings @account | Out-Null
    OnUndo { Unregister-ScheduledTask -TaskName 'tarvel-experiment' -Confirm:$false }
    Start-ScheduledTask -TaskName 'tarvel-experiment'
    for ($i = 0; $i -lt 120 -and -not (Test-Path -LiteralPath "$root\status.txt"); $i++) { Start-Sleep -Seconds 1 }
    if ($i -eq 120) { throw "the task has not ended: $((Get-ScheduledTaskInfo 'tarvel-experiment').LastTaskResult)" }
    $status = [int](Get-Content -LiteralPath "$root\status.txt").Trim()
    $outcome = Outcome $case $status ([System.IO.File]::ReadAllText("$root\out.txt"))
    Expect $who $movedWhole "$outcome, $(StateOf $case), $(Verify)"
    ExpectAccessLists $who $case
}

# --- The experiments --------------------------------------------------------------------------------------------------

# What leads out of the old tree is refused, or copied before it is deleted where it leads to.
function ExpectLinked([string]$what, [hashtable]$case, [string]$there, [string]$copied) {
    Set-Content -LiteralPath $there -Value 'kept'
    $seen = See $case
    $where = "there $(Test-Path -LiteralPath $there), copied $(Test-Path -LiteralPath $copied)"
    Expect $what "$refused, there True, copied False", "$refused, there True, copied True",
        "$moved, there False, copied True" "$seen, $where"
}

$experiments = [ordered]@{
    plain = {
        $case = NewCase 'plain'
        $record = "/record `"$($case.Root)\work\record.txt`""
        $attributes = { param($folder) $case.Data.Keys | Sort-Object |
                ForEach-Object { "$_ $([int](Get-Item -LiteralPath ($folder + $_) -Force).Attributes -band 7)" } }
        Must "$tools\icacls.exe" "`"$($case.OldData)\activity.rec`" /grant *S-1-1-0:R"
        $before = @(& $attributes $case.OldData) -join ', '
        Expect 'a whole move, tarvelcheck before' '0' (Check $case 'before' $record).Status
        Expect 'a whole move' $movedWhole (SeeWhole $case)
        Expect 'a whole move, tarvelcheck after, with the record' '0' (Check $case 'after' $record).Status
        Expect 'a whole move, attributes 1, 2, 4 of files' $before (@(& $attributes $case.NewData) -join ', ')
        $new = "$($case.Root)\new"
        ExpectAccessLists 'a whole move' $case $new, "$new\data", "$new\data\qmgrs", "$new\log"
    }
    held = {
        $case = NewCase 'held'
        $after = { (Check $case 'after' "/od `"$($case.OldData)`" /ol `"$($case.OldLog)`"").Status }
        $file = [System.IO.File]::Open("$($case.OldData)\activity.rec", 'Open', 'Read', 'None')
        try { $outcome = "$(MoveIt $case), tarvelcheck after $(& $after)" } finally { $file.Close() }
        Expect 'a source file that a program holds for itself' "$refused, tarvelcheck after 3" `
            ($outcome -replace ', tarvel', ", $(StateOf $case), tarvel")
        Expect 'the same, held no more, tarvelcheck after' '1' (& $after)
        Expect 'the same command again' $movedWhole (SeeWhole $case)
    }
    full = {
        $case = NewCase 'full' -new (NewVolume 'full' 32 'NTFS')
        Must "$tools\fsutil.exe" "file createnew `"$($case.OldData)\large.bin`" 67108864"
        Remember $case
        $before = Check $case 'before' ''
        Expect 'a destination that is too small, tarvelcheck before' '1, STOP  free space' `
            "$($before.Status), $([regex]::Match($before.Printed, 'STOP +free space').Value)"
        Expect 'a destination that is too small' $refused (See $case)
    }
    junction = {
        $case = NewCase 'junction'
        New-Item -ItemType Directory -Path "$($case.Root)\elsewhere" | Out-Null
        New-Item -ItemType Junction -Path "$($case.OldData)\link" -Value "$($case.Root)\elsewhere" | Out-Null
        ExpectLinked 'a junction in the old tree' $case "$($case.Root)\elsewhere\kept" "$($case.NewData)\link\kept"
    }
    mounted = {
        $case = NewCase 'mounted'
        $drive = NewVolume 'mounted' 64 'NTFS'
        New-Item -ItemType Directory -Path "$($case.OldLog)\link" | Out-Null
        Get-Partition -DriveLetter $drive[0] | Add-PartitionAccessPath -AccessPath "$($case.OldLog)\link"
        ExpectLinked 'a volume mounted in the old tree' $case "$drive\kept" "$($case.NewLog)\link\kept"
    }
    back = {
        $case = NewCase 'back'
        New-Item -ItemType Directory -Path $case.NewData | Out-Null
        New-Item -ItemType Junction -Path "$($case.NewData)\queues0" -Value "$($case.OldData)\queues0" | Out-Null
        Expect 'a junction in the destination that leads to the old tree' $refused (See $case)
    }
    empty = {
        $case = NewCase 'empty'
        Get-ChildItem -LiteralPath $case.OldLog -Force | Remove-Item -Recurse -Force
        Remember $case
        Expect 'an empty log directory' $moved, $refused (See $case)
    }
    leftovers = {
        $case = NewCase 'leftovers'
        $kinds = 'ReadOnly', 'Hidden', 'System', 'ReadOnly, Hidden'
        $files = @($case.Log.Keys | Sort-Object | ForEach-Object { $case.NewLog + $_ })
        for ($i = 0; $i -lt $kinds.Count; $i++) {
            New-Item -ItemType File -Path $files[$i] -Value 'left over' -Force | Out-Null
            [System.IO.File]::SetAttributes($files[$i], $kinds[$i])
        }
        Expect 'read-only, hidden and system files in the destination' $moved, $refused (See $case)
    }
    stream = {
        $case = NewCase 'stream'
        Set-Content -LiteralPath "$($case.OldData)\activity.rec" -Stream 'note' -Value 'kept'
        $seen = See $case
        $stream = Get-Content -LiteralPath "$($case.NewData)\activity.rec" -Stream 'note' -ErrorAction SilentlyContinue
        Expect 'a named stream' "$moved, kept" "$seen, $stream"
    }
    hardlink = {
        $case = NewCase 'hardlink'
        $first = "$($case.NewLog)\file00001.rec"
        New-Item -ItemType File -Path $first -Value 'left over' -Force | Out-Null
        New-Item -ItemType HardLink -Path "$($case.NewLog)\journal.rec" -Value $first | Out-Null
        $seen = "$(See $case), $(Get-Content -LiteralPath $first)"
        Expect 'two leftovers that are one file' "$refused, left over" $seen
        Remove-Item -LiteralPath $first, "$($case.NewLog)\journal.rec"
        New-Item -ItemType HardLink -Path "$($case.OldData)\x.rec" -Value "$($case.OldData)\activity.rec" | Out-Null
        Remember $case
        Expect 'a file of the old tree that has two names' $movedWhole (SeeWhole $case)
    }
    shares = {
        $case = NewCase 'shares'
        foreach ($share in 'tarvel-one', 'tarvel-two') {
            New-SmbShare -Name $share -Path $case.Root -FullAccess $me.Name | Out-Null
            OnUndo { param($name) Remove-SmbShare -Name $name -Force } $share
        }
        foreach ($file in $case.ZnsIni, "$($case.OldData)\qm.ini") {
            $text = [System.IO.File]::ReadAllText($file).Replace("$($case.Root)\old", '\\localhost\tarvel-one\old')
            [System.IO.File]::WriteAllText($file, $text)
        }
        Remember $case
        $case.Words = '/m QM1 /dd "\\localhost\tarvel-two\old\data" /ld "\\localhost\tarvel-two\old\log"'
        Expect 'the old folders under the name of another share' $refused (See $case)
    }
    clone = {
        $drive = NewVolume 'clone' 64 'NTFS'
        $case = NewCase 'clone' -old $drive
        Dismount-DiskImage -ImagePath "$work\clone.vhd" | Out-Null
        Copy-Item -LiteralPath "$work\clone.vhd" -Destination "$work\copy.vhd"
        OnUndo { param($path) Remove-Item -LiteralPath $path } "$work\copy.vhd"
        if ((Letter (Attach "$work\clone.vhd")) -ne $drive) { throw "$drive has another letter now" }
        SetNewPlace $case (Letter (Attach "$work\copy.vhd"))
        Expect 'to a copy of the volume, with its serial number and identities' $movedWhole (SeeWhole $case)
    }
    refs = {
        $case = NewCase 'refs' -new (NewVolume 'refs' 8192 'ReFS')
        Expect 'to ReFS' $movedWhole (SeeWhole $case)
        ExpectAccessLists 'to ReFS' $case
    }
    exfat = {
        $case = NewCase 'exfat' -new (NewVolume 'exfat' 256 'exFAT')
        Set-Content -LiteralPath "$($case.OldData)\activity.rec" -Stream 'note' -Value 'lost'
        Expect 'to exFAT, tarvelcheck before names streams' 'True' ((Check $case 'before' '').Printed -match 'stream')
        Expect 'to exFAT, which rounds times' $movedWhole (SeeWhole $case)
    }
    member = {
        $name = 'tarvel-member'
        $password = 'Zn1!' + [guid]::NewGuid().ToString('N').Substring(0, 10)
        Must "$tools\net.exe" "user $name $password /add"
        OnUndo {
            param($name)
            $sid = (Get-LocalUser -Name $name).SID.Value
            Must "$tools\net.exe" "user $name /delete"
            Start-Sleep -Seconds 5 # until its profile is closed
            Get-CimInstance -ClassName Win32_UserProfile -Filter "SID = '$sid'" | Remove-CimInstance
        } $name
        Must "$tools\net.exe" "localgroup znm $name /add"
        Add-LocalGroupMember -SID 'S-1-5-32-559' -Member $name # these may run tasks
        $case = NewCase 'member'
        Must "$tools\icacls.exe" "`"$($case.Root)`" /grant *${znm}:(OI)(CI)F"
        ExpectMoveBy 'by a member of znm who is no administrator' $case `
            @{ User = "$env:COMPUTERNAME\$name"; Password = $password }
    }
    system = {
        $account = New-ScheduledTaskPrincipal -UserId $system -LogonType ServiceAccount
        ExpectMoveBy 'by SYSTEM' (NewCase 'system') @{ Principal = $account }
    }
}

$me = [System.Security.Principal.WindowsIdentity]::GetCurrent()
$role = New-Object System.Security.Principal.SecurityIdentifier $administrators
if (-not (New-Object System.Security.Principal.WindowsPrincipal $me).IsInRole($role)) { throw 'Not elevated.' }
if (Test-Path -LiteralPath $work) { throw "$work is there already. Remove it first." }
$names = @($experiments.Keys | Where-Object { -not $Only -or ($Only -join ',').Split(',') -contains $_ })
New-Item -ItemType Directory -Path $Results -Force | Out-Null
Set-Content -LiteralPath "$Results\report.txt" -Value "Windows $([Environment]::OSVersion.Version)" -Encoding UTF8
try {
    New-Item -ItemType Directory -Path "$work\bin64" | Out-Null
    OnUndo { RemoveFolder $work }
    Must "$tools\icacls.exe" ("`"$work`" /inheritance:r /grant *${administrators}:(OI)(CI)F *${system}:(OI)(CI)F " +
        "*$($me.User.Value):(OI)(CI)F *S-1-5-32-545:(OI)(CI)RX")
    Copy-Item -Path "$Programs\tarvel*.exe", "$Programs\sampleqm.exe", "$Programs\tov*.dll" -Destination "$work\bin64"
    if ((Run "$tools\net.exe" 'localgroup znm').Status -ne 0) {
        Must "$tools\net.exe" 'localgroup znm /add'
        OnUndo { Must "$tools\net.exe" 'localgroup znm /delete' }
    }
    $account = New-Object System.Security.Principal.NTAccount 'znm'
    $znm = $account.Translate([System.Security.Principal.SecurityIdentifier]).Value
    foreach ($name in $names) {
        $level = $undo.Count
        try { & $experiments[$name] }
        catch {
            if ("$_".StartsWith('skip: ')) { Say "skipped $name$("$_".Substring(4))" }
            else { SayFailure "${name}: $_ $($_.ScriptStackTrace)" }
        }
        UndoTo $level
    }
}
finally { UndoTo 0 }
Say "$($names.Count) experiments, $($script:failures) not as expected"
exit $script:failures
