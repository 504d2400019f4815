# To be sourced after packages.sh: Debian's packages for 32-bit ARM, from this machine's package sources but through a
# private apt state: the machine itself gets no second architecture.

# Prints the package sources of this machine that are Debian's, from its package lists. Other sources may not have the
# architecture.
debian_sources() {
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Identifier: Packages' 'Origin: Debian' |
        sort -u
}

# apt_armhf STATE COMMAND...: an apt command with the machine's configuration, except for its folders and the commands that
# run after an update.
apt_armhf() {
    local state=$1 command=$2
    shift 2
    "$command" -q -c "$state/apt.conf" "$@"
}

# make_apt_state STATE: makes the folder and downloads the package lists. Standard input is the package status. Downloaded
# packages are in STATE/debs.
make_apt_state() {
    local state=$1
    mkdir -p "$state"/{lists,cache,debs/partial,root}
    cat >"$state/status"
    debian_sources >"$state/sources.list"
    if [ ! -s "$state/sources.list" ]; then
        echo "This machine has no package lists of Debian yet"
        run_as_root apt-get update -q
        debian_sources >"$state/sources.list"
    fi
    cat >"$state/apt.conf" <<CONF
#clear APT::Architectures;
#clear APT::Update;
#clear DPkg;
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Sandbox::User "";
APT::Install-Recommends "false";
Acquire::Languages "none";
Acquire::Retries "3";
Dir::State "$state";
Dir::State::status "$state/status";
Dir::State::lists "$state/lists";
Dir::Cache "$state/cache";
Dir::Cache::archives "$state/debs";
Dir::Etc::sourcelist "$state/sources.list";
Dir::Etc::sourceparts "/dev/null";
CONF
    # A mirror's list of this architecture can be out of date; the other lists have every package, too.
    apt_armhf "$state" apt-get update || echo "Some package lists could not be downloaded; continuing with the others"
}
