#!/usr/bin/env bash
# A home network behind a router, in network namespaces of their own:
#   HOME (192.168.77.2) -- (192.168.77.1) ROUTER (EXTERNAL/24) -- (x.x.x.9) INTERNET
# The router forwards and masquerades the home network, and has the nftables chains miniupnpd fills.
#   homerouter.sh up TAG EXTERNAL     makes lhr-TAG-home, lhr-TAG-router, lhr-TAG-net
#   homerouter.sh down TAG            removes them
#   homerouter.sh flush TAG           empties miniupnpd's chains (a stopped daemon leaves its rules)
#   homerouter.sh sweep               removes the namespaces of test programs that are gone
set -euo pipefail
command=$1
tag=${2:-}
home=lhr-$tag-home router=lhr-$tag-router net=lhr-$tag-net

# Ends what still runs inside (a daemon whose test died), then removes the namespace.
remove() {
    ip netns pids "$1" 2>/dev/null | xargs -r kill -9 2>/dev/null || true
    ip netns delete "$1" 2>/dev/null || true
}

case $command in
down)
    for ns in "$home" "$router" "$net"; do remove "$ns"; done
    exit 0 ;;
flush)
    for chain in miniupnpd prerouting_miniupnpd postrouting_miniupnpd; do
        ip netns exec "$router" nft flush chain inet filter "$chain"
    done
    exit 0 ;;
sweep)
    # A tag starts with the test program's process id.
    for ns in $(ip netns list | awk '{print $1}' | grep '^lhr-' || true); do
        pid=${ns#lhr-}; pid=${pid%%[!0-9]*}
        if [ -n "$pid" ] && ! kill -0 "$pid" 2>/dev/null; then remove "$ns"; fi
    done
    exit 0 ;;
up) ;;
*) echo "usage: homerouter.sh up|down|flush TAG [EXTERNAL] | sweep" >&2; exit 2 ;;
esac

external=$3
prefix=${external%.*}
ip netns add "$home"
ip netns add "$router"
ip netns add "$net"
# Interface names: at most 15 characters.
short=${tag//-/}
ip link add "h$short" netns "$home" type veth peer name "rh$short" netns "$router"
ip link add "n$short" netns "$net" type veth peer name "rn$short" netns "$router"
ip -n "$home" addr add 192.168.77.2/24 dev "h$short"
ip -n "$router" addr add 192.168.77.1/24 dev "rh$short"
ip -n "$router" addr add "$external/24" dev "rn$short"
ip -n "$net" addr add "$prefix.9/24" dev "n$short"
for ns in "$home" "$router" "$net"; do ip -n "$ns" link set lo up; done
ip -n "$home" link set "h$short" up
ip -n "$router" link set "rh$short" up
ip -n "$router" link set "rn$short" up
ip -n "$net" link set "n$short" up
# Discovery and NAT-PMP go to the default gateway, as on any home computer.
ip -n "$home" route add default via 192.168.77.1
ip netns exec "$router" sysctl -q -w net.ipv4.ip_forward=1
ip netns exec "$router" nft -f - <<NFT
table inet filter {
    chain miniupnpd {
    }
    chain forward {
        type filter hook forward priority 0; policy drop;
        ct state established,related accept
        iifname "rh$short" oifname "rn$short" accept
        jump miniupnpd
    }
    chain prerouting_miniupnpd {
    }
    chain postrouting_miniupnpd {
    }
    chain prerouting {
        type nat hook prerouting priority -100; policy accept;
        jump prerouting_miniupnpd
    }
    chain postrouting {
        type nat hook postrouting priority 100; policy accept;
        jump postrouting_miniupnpd
        oifname "rn$short" masquerade
    }
}
NFT
echo "rh$short rn$short"
