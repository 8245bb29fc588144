# complete.zsh FOLDER LINE: prints, one a line, what zsh offers for the end of LINE. FOLDER holds completion functions.
# zsh completes only for a person at a terminal, so it gets a terminal of its own.
zmodload zsh/zpty
zpty -b shell zsh -f -i
zpty -w shell 'PS1=; stty -echo; fpath=('"${(q)1}"' $fpath); autoload -Uz compinit; compinit -u -D
    # Prints what is offered, besides offering it.
    compadd() {
        local -a offered
        builtin compadd -A offered "$@"
        print -rl -- "<"${^offered}">"
        builtin compadd "$@"
    }
    _show() { _main_complete; print "<end>"; compstate[insert]=; compstate[list]= }
    zle -C show complete-word _show; bindkey "^I" show; print "<ready>"'
zpty -r -m shell shown '*<ready>*'
zpty -w -n shell "$2"$'\t'
zpty -r -m shell shown '*<end>*'
print -r -- $shown | tr -d '\r' | sed -n 's/^.*<\(.*\)>$/\1/p' | grep -vx -e ready -e end
zpty -d shell
