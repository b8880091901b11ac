# Fish completion for zebu2. Verbs and options come from --help, so that none is missing here.

function __zebu2_verbs
    zebu2 --help | string match -rg '^  ([a-z]+  .*)' | string replace -r '  +' \t
end

function __zebu2_options
    set -l verb (commandline -opc)[2]
    zebu2 $verb --help | string match -rg '^  .*?(--[a-z-]+)'
end

# Prefixes of rings, taken from their first files.
function __zebu2_rings
    for file in (commandline -ct)*1.log
        string replace -r '1\.log$' '' -- $file
    end
end

function __zebu2_after
    contains -- (commandline -opc)[-1] $argv
end

complete -c zebu2 -f -n __fish_use_subcommand -a '(__zebu2_verbs)'
complete -c zebu2 -f -n __fish_use_subcommand -a '--help --version'
complete -c zebu2 -n 'not __fish_use_subcommand; and string match -q -- "-*" (commandline -ct)' -f -a '(__zebu2_options)'
complete -c zebu2 -n '__fish_seen_subcommand_from show stat backup put' -a '(__zebu2_rings)'
complete -c zebu2 -n '__zebu2_after -o --output' -f -a 'text short json raw prometheus'
complete -c zebu2 -n '__zebu2_after --columns' -f -a 'counter time app pid tid id type text body host source file'
complete -c zebu2 -n '__zebu2_after --color' -f -a 'auto always never'
complete -c zebu2 -n '__zebu2_after --form' -f -a 'plain id type'
complete -c zebu2 -n '__zebu2_after --count' -f -a 'app pid tid id type minute hour'
complete -c zebu2 -n '__zebu2_after -S --since -U --until' -f -a 'today yesterday now -15min -1h -1d'
complete -c zebu2 -n '__zebu2_after --older-than --max-age --min-reach' -f -a '1d 7d 30d'
