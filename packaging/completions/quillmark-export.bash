# Completion of quillmark-export's options for bash.

_quillmark_export() {
    local cur prev words cword split
    _init_completion -s || return
    case $prev in
        --user | --event | --category | --project | --pricing | --resize)
            return
            ;;
        --password-file | --files0-from)
            _filedir
            return
            ;;
        --plugin)
            _filedir -d
            return
            ;;
        --quality)
            COMPREPLY=($(compgen -W '{0..12}' -- "$cur"))
            return
            ;;
        --colorspace)
            COMPREPLY=($(compgen -W 'srgb adobe-rgb prophoto' -- "$cur"))
            return
            ;;
    esac
    $split && return
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W '--user --password-file --remember --ephemeral --event --category
            --auto-categories --project --pricing --resize --quality --colorspace --files0-from --resume --list --json --quiet
            --plugin --help --version' -- "$cur"))
        return
    fi
    _filedir '@(jp?(e)g|jpe|png|tif?(f)|webp|hei[cf]|JP?(E)G|JPE|PNG|TIF?(F)|WEBP|HEI[CF])'
} &&
    complete -F _quillmark_export quillmark-export
