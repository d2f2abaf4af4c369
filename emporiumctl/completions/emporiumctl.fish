# SPDX-License-Identifier: BSD-3-Clause
# fish completion for emporiumctl

# Asks the daemon, and waits two seconds at most.
function __emporiumctl_packages
    emporiumctl --timeout 2 list --no-header --columns id 2>/dev/null
end
function __emporiumctl_operations
    emporiumctl --timeout 2 operations --active --no-header --columns uuid 2>/dev/null
end
function __emporiumctl_errors
    emporiumctl errors | awk 'NR > 1 {print $2}'
end

set -l commands list info operations install upgrade remove wait start restart watch status errors record
complete -c emporiumctl -n "not __fish_seen_subcommand_from $commands" -f -a "$commands"
complete -c emporiumctl -l json -d 'Print JSON documents'
complete -c emporiumctl -l quiet -d 'Print no progress'
complete -c emporiumctl -l verbose -d 'Print the log lines of the library'
complete -c emporiumctl -l color -x -a 'auto always never' -d 'Use colours'
complete -c emporiumctl -l timeout -x -d 'Give up after this many seconds'
complete -c emporiumctl -l host -x -a '(__fish_print_hostnames)' -d 'Use the bus of this machine'
complete -c emporiumctl -l version -d 'Print the version'
complete -c emporiumctl -l help -d 'Show help'
complete -c emporiumctl -n '__fish_seen_subcommand_from list operations info start restart remove wait watch status errors' -f
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -l developer -x -d 'Of this certificate ID'
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -l subgroup -x -d 'Of this subgroup'
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -l filter -x -d 'With this text in the ID'
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -l columns -x -a 'id version developer subgroup' -d 'Only these columns'
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -l sort -x -a 'id version developer subgroup' -d 'Sort by this column'
complete -c emporiumctl -n '__fish_seen_subcommand_from operations' -l columns -x -a 'uuid type package status error' -d 'Only these columns'
complete -c emporiumctl -n '__fish_seen_subcommand_from operations' -l sort -x -a 'uuid type package status error' -d 'Sort by this column'
complete -c emporiumctl -n '__fish_seen_subcommand_from list operations' -l no-header -d 'Without the heading'
complete -c emporiumctl -n '__fish_seen_subcommand_from operations' -l active -d 'Only unfinished ones'
complete -c emporiumctl -n '__fish_seen_subcommand_from operations' -l completed -d 'Only finished ones'
complete -c emporiumctl -n '__fish_seen_subcommand_from install upgrade remove' -l no-wait -d 'Do not wait'
complete -c emporiumctl -n '__fish_seen_subcommand_from info start restart remove' -a '(__emporiumctl_packages)'
complete -c emporiumctl -n '__fish_seen_subcommand_from wait' -a '(__emporiumctl_operations)'
complete -c emporiumctl -n '__fish_seen_subcommand_from watch' -l package -x -a '(__emporiumctl_packages)' -d 'Only of this package'
complete -c emporiumctl -n '__fish_seen_subcommand_from watch' -l event -x -a 'PackageInstalled PackageUpgraded PackageRemoved OperationStatusChanged DaemonVanished DaemonAppeared' -d 'Only of this name'
complete -c emporiumctl -n '__fish_seen_subcommand_from watch' -l timestamps -d 'Print the time of each event'
complete -c emporiumctl -n '__fish_seen_subcommand_from status' -l wait -d 'Wait for the daemon'
complete -c emporiumctl -n '__fish_seen_subcommand_from errors' -a '(__emporiumctl_errors)'
complete -c emporiumctl -n '__fish_seen_subcommand_from record' -l force -d 'Replace the file'
