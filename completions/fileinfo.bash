# bash completion for fileinfo

_fileinfo_fields="path status is_audio is_video has_tags identified playable refused_by library_playable library_refused_by record_differs type aac_format audio_codec pcm_format video_codec duration_ms duration_estimated sample_rate channels bits_per_sample bit_rate audio_bit_rate vbr width height frame_rate video_bit_rate video_peak_bit_rate profile profile_id level size title artist album genre year track track_total comment composer isVbr trackNumber profileLevelId bitsPerSample fileSize frameRate sampleRate bitRate peakBitRate durationMs fileType audioCodec audioFormat videoFormat spareText channelMode lyrics record.level record.profile record.height record.width record.title record.artist record.album record.genre record.year record.comment record.composer"

# The subcommands, and each one's options: one line each to add.
_fileinfo_subcommands="report sync"
_fileinfo_options_report="-o --output --device --title -j --jobs --ext --hidden --help"
_fileinfo_options_sync="--to --device -n --dry-run -j --jobs --ext --hidden --keep-removed --format --fat-names --no-convert --ffmpeg --help"

# Device lists by name, as --device finds them (share/fileinfo/devices).
_fileinfo_devices() {
    local dir names=""
    for dir in ${FILEINFO_DEVICES//:/ } /usr/local/share/fileinfo/devices /usr/share/fileinfo/devices; do
        [[ -d $dir ]] && names+=" $(cd "$dir" && compgen -G '*.plist' | sed 's/\.plist$//')"
    done
    echo "$names"
}

_fileinfo() {
    local cur prev sub=""
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    if ((COMP_CWORD > 1)) && [[ " $_fileinfo_subcommands " == *" ${COMP_WORDS[1]} "* ]]; then
        sub=${COMP_WORDS[1]}
    fi
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
        --device)
            COMPREPLY=($(compgen -W "$(_fileinfo_devices)" -- "$cur") $(compgen -f -- "$cur"))
            compopt -o filenames 2>/dev/null || :
            return ;;
        --to)
            COMPREPLY=($(compgen -d -- "$cur"))
            compopt -o filenames 2>/dev/null || :
            return ;;
        --from|--summary-file|-o|--output|--ffmpeg)
            COMPREPLY=($(compgen -f -- "$cur"))
            compopt -o filenames 2>/dev/null || :
            return ;;
        -j|--jobs|--ext|--title)
            return ;;
    esac
    if [[ $cur == -* ]]; then
        if [[ -n $sub ]]; then
            local options="_fileinfo_options_$sub"
            COMPREPLY=($(compgen -W "${!options}" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "--format --json --fields --all-fields --record --summary --summary-only --summary-file
                --progress --no-progress --from -0 --null --ext --hidden --strict --jobs --device --explain --only
                --fail-unplayable --set --dry-run --force --no-backup --writer --id3v2.3 --restore --version --help" -- "$cur"))
        fi
        return
    fi
    COMPREPLY=($(compgen -f -- "$cur"))
    ((COMP_CWORD == 1)) && COMPREPLY+=($(compgen -W "$_fileinfo_subcommands" -- "$cur"))
    compopt -o filenames 2>/dev/null || :
}

complete -F _fileinfo fileinfo
