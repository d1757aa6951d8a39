# bash completion for fileinfo

_fileinfo_fields="path status is_audio is_video has_tags identified playable refused_by isVbr trackNumber level profile profileLevelId bitsPerSample height width fileSize frameRate sampleRate bitRate peakBitRate durationMs fileType audioCodec audioFormat videoFormat spareText channelMode title artist album genre lyrics year comment composer"

_fileinfo() {
    local cur prev
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    case $prev in
        --format)
            COMPREPLY=($(compgen -W "list json csv tsv table" -- "$cur"))
            return ;;
        --only)
            COMPREPLY=($(compgen -W "playable unplayable" -- "$cur"))
            return ;;
        --fields)
            # Complete the name after the last comma.
            local done=${cur%"${cur##*,}"}
            COMPREPLY=($(compgen -P "$done" -W "$_fileinfo_fields" -- "${cur##*,}"))
            compopt -o nospace 2>/dev/null || :
            return ;;
        --writer)
            COMPREPLY=($(compgen -W "fields library" -- "$cur"))
            return ;;
        --set)
            COMPREPLY=($(compgen -S = -W "title artist album genre year comment composer lyrics track" -- "$cur"))
            compopt -o nospace 2>/dev/null || :
            return ;;
        --device|--from)
            COMPREPLY=($(compgen -f -- "$cur"))
            compopt -o filenames 2>/dev/null || :
            return ;;
        -j|--jobs|--ext)
            return ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--format --json --fields --all-fields --summary --summary-only --progress
            --no-progress --from -0 --null --ext --hidden --strict --jobs --device --explain --only
            --fail-unplayable --set --dry-run --force --no-backup --writer --id3v2.3 --restore --version --help" -- "$cur"))
        return
    fi
    COMPREPLY=($(compgen -f -- "$cur"))
    compopt -o filenames 2>/dev/null || :
}

complete -F _fileinfo fileinfo
