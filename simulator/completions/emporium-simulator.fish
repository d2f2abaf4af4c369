# SPDX-License-Identifier: BSD-3-Clause
# The command after "--", wherever that is.
function __emporium_simulator_command
    set -l words (commandline -opc) (commandline -ct)
    set -e words[1..(contains -i -- -- $words)]
    __fish_complete_subcommand --commandline $words
end

set -l c complete -c emporium-simulator
$c -f
$c -s h -l help -d 'Show the help'
$c -l catalogue -r -F -d 'What the daemon reports initially'
$c -l state -x -a '(__fish_complete_directories)' -d 'Keep all changes across restarts'
$c -l packages -x -d 'Generate a catalogue of N packages'
$c -l dictionary-entries -x -d 'Dictionary entries in each package'
$c -l steps -x -d 'Status steps of an operation'
$c -l step-ms -x -d 'Milliseconds between the steps'
$c -l do -x -d 'Execute a verb'
$c -l check -d 'Only check the files'
$c -l paused -d 'Replay from StartReplay on'
$c -l scenario -r -F -d 'Execute the verbs in the file'
$c -l replay -r -F -d 'Replay a recording'
$c -l speed -x -d 'Replay X times as fast'
$c -l private-bus -d 'Serve on a new bus and run a command on it'
$c -l private-home -d 'Give the command a new home'
$c -l keep-cache -d 'Give the command the cache of the user'
$c -l make-package -r -F -d 'Write a package file and exit'
$c -l id -x -d 'ID of the package to write'
$c -l version -x -d 'Its version'
$c -l architecture -x -d 'Its architecture'
$c -l developer -x -d 'ID of its developer certificate'
$c -l subgroup -x -d 'Subgroup of its developer certificate'
$c -l payload -x -d 'Its payload size in bytes'
$c -l verbose -d 'Print each call and signal'
$c -n 'test (count (commandline -opc)) -eq 1' -a ctl -d 'Call a verb of a running simulator'
$c -n 'test (count (commandline -opc)) -eq 2; and test (commandline -opc)[2] = ctl' -a "FailCall DelayReply SetReply QueueSignal ExitDuring Calls DropProperty SetProperty RestoreProperty EmitSignal EmitSignalFrom Vanish Return FailOperation AddPackage RemovePackage AddActiveOperation AddCompletedOperation Reset StartReplay WaitForCall WaitForStatus WaitForClient"
$c -n 'test (count (commandline -opc)) -eq 3; and test (commandline -opc)[2] = ctl' -a "GetAllProperties Install Remove Start Restart"
$c -n 'contains -- --private-bus (commandline -opc); and contains -- -- (commandline -opc)' -a '(__emporium_simulator_command)'
