# Completion of Ombrix(8) for fish.
#
# Ombrix takes the capitals and all dashes out of every word before it looks at it, and out of the
# path after the option too. So any spelling of a word is completed, and no path is offered that
# would not be the same afterwards.

function __Ombrix_bare
    string lower -- $argv | string replace --all -- - ''
end

# What the word under the cursor can be: a path, another word, or nothing.
function __Ombrix_awaits
    set -l awaited word
    for word in (__Ombrix_bare (commandline -opc)[2..-1])
        if test $awaited = path
            set awaited word
        else if contains -- $word c configfile
            set awaited path
        else if contains -- $word list prepforupgrade stop v version vnum
            set awaited nothing
            break
        end
    end
    test $awaited = $argv[1]
end

function __Ombrix_paths
    for path in (__fish_complete_path (commandline -ct) | string replace --regex '\t.*' '')
        set -l bare (__Ombrix_bare $path)
        # On a disk that ignores case both may name the same file.
        if test "$path" = "$bare"; or test "$path" -ef "$bare"
            echo $path
        end
    end
end

# Words with their descriptions, with as many dashes as were typed.
function __Ombrix_words
    set -l typed (commandline -ct)
    set -l dashes (string match --regex -- '^-*' $typed)
    test -n "$typed"; or set dashes ''
    for line in list\t'Write the list of watched processes' \
        stop\t'End the running agent' \
        -c\t'Run the agent with this configuration file' \
        -ConfigFile\t'Run the agent with this configuration file' \
        -PrepForUpgrade\t'Give the applications folder its capital' \
        -v\t'Print name and version' \
        -version\t'Print name and version' \
        -vnum\t'Print the version'
        if test -n "$typed"
            set line $dashes(string trim --left --chars=- -- $line)
        end
        echo $line
    end
end

complete -c Ombrix -f
complete -c Ombrix -n '__Ombrix_awaits word' -k -a '(__Ombrix_words)'
complete -c Ombrix -n '__Ombrix_awaits path' -k -a '(__Ombrix_paths)'
