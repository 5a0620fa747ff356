// A routing daemon in Go, on bindings that were generated from the interface file: it looks a source up, follows
// the MRIB, changes the configuration and waits until Monitor has told it of what came of that.
package main

import (
	"context"
	"errors"
	"fmt"
	"log"
	"os"
	"time"

	"github.com/varlink/go/varlink"
	"orgmrib"
)

func check(err error) {
	if err != nil {
		log.Fatal(err)
	}
}

func main() {
	ctx, cancel := context.WithTimeout(context.Background(), 20*time.Second)
	defer cancel()
	connection, err := varlink.NewConnection(ctx, "unix:"+os.Args[1])
	check(err)
	defer connection.Close()
	follower, err := varlink.NewConnection(ctx, "unix:"+os.Args[1])
	check(err)
	defer follower.Close()

	var vendor, product, version, url string
	var interfaces []string
	check(connection.GetInfo(ctx, &vendor, &product, &version, &url, &interfaces))
	fmt.Println("info:", product, interfaces)
	_, _, mode, answers, err := orgmrib.Lookup().Call(ctx, connection, []string{"10.1.0.9"})
	check(err)
	fmt.Println("lookup:", mode, answers[0].Status, *answers[0].Table, answers[0].Route.Prefix,
		*answers[0].Route.Vias[0].Interface)

	_, _, _, _, err = orgmrib.Lookup().Call(ctx, connection, []string{"224.0.0.5"})
	var invalid *orgmrib.InvalidAddress
	fmt.Println("group:", errors.As(err, &invalid))
	fmt.Println("routes:", len(routesOf(ctx, connection)))

	receive, err := orgmrib.Monitor().Send(ctx, follower, varlink.More)
	check(err)
	for configured := false; ; {
		_, restart, complete, _, changes, flags, err := receive(ctx)
		check(err)
		if flags&varlink.Continues == 0 {
			log.Fatal("Monitor ends")
		}
		for _, change := range changes {
			if !restart && change.Prefix == "203.0.113.0/24" {
				fmt.Println("change:", change.Before == nil, *change.After.Vias[0].NextHop)
				return
			}
		}
		if complete && !configured {
			configured = true
			_, difference, err := orgmrib.Configure().Call(ctx, connection,
				[]string{"ip mroute 203.0.113.0/24 10.1.0.2"}, nil, nil)
			check(err)
			fmt.Println("configure:", len(difference.Added), len(difference.Unresolved))
		}
	}
}

// All parts of the MRIB.
func routesOf(ctx context.Context, c *varlink.Connection) (all []orgmrib.Route) {
	receive, err := orgmrib.ListRoutes().Send(ctx, c, varlink.More, nil, nil, nil, nil)
	check(err)
	for {
		_, _, routes, flags, err := receive(ctx)
		check(err)
		all = append(all, routes...)
		if flags&varlink.Continues == 0 {
			return all
		}
	}
}
