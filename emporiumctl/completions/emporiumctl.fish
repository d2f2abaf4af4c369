# SPDX-License-Identifier: BSD-3-Clause
# fish completion for emporiumctl

set -l commands list info operations install upgrade remove start restart watch status errors record
complete -c emporiumctl -n "not __fish_seen_subcommand_from $commands" -f -a "$commands"
complete -c emporiumctl -l json -d 'Print JSON documents'
complete -c emporiumctl -l help -d 'Show help'
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -f -l developer -x -d 'Of this certificate ID'
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -f -l subgroup -x -d 'Of this subgroup'
complete -c emporiumctl -n '__fish_seen_subcommand_from list' -f -l filter -x -d 'With this text in the ID'
complete -c emporiumctl -n '__fish_seen_subcommand_from operations' -f -l active -d 'Only unfinished ones'
complete -c emporiumctl -n '__fish_seen_subcommand_from operations' -f -l completed -d 'Only finished ones'
complete -c emporiumctl -n '__fish_seen_subcommand_from install upgrade remove' -l no-wait -d 'Do not wait'
complete -c emporiumctl -n '__fish_seen_subcommand_from install upgrade remove' -l timeout -x -d 'Wait this many seconds'
