# bash completion for fileinfo

_fileinfo_fields="path status is_audio is_video has_tags identified playable refused_by library_playable library_refused_by record_differs type aac_format audio_codec pcm_format video_codec duration_ms duration_estimated sample_rate channels bits_per_sample bit_rate audio_bit_rate vbr width height frame_rate video_bit_rate video_peak_bit_rate profile profile_id level size title artist album genre year track track_total comment composer isVbr trackNumber profileLevelId bitsPerSample fileSize frameRate sampleRate bitRate peakBitRate durationMs fileType audioCodec audioFormat videoFormat spareText channelMode lyrics record.level record.profile record.height record.width record.title record.artist record.album record.genre record.year record.comment record.composer"

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
        COMPREPLY=($(compgen -W "--format --json --fields --all-fields --record --summary --summary-only --progress
            --no-progress --from -0 --null --ext --hidden --strict --jobs --device --explain --only
            --fail-unplayable --set --dry-run --force --no-backup --restore --version --help" -- "$cur"))
        return
    fi
    COMPREPLY=($(compgen -f -- "$cur"))
    compopt -o filenames 2>/dev/null || :
}

complete -F _fileinfo fileinfo
